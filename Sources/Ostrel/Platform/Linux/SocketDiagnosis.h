// The kernel's list of local sockets (sock_diag over netlink), which an ordinary user may ask for, and the
// sockets that a process holds (/proc/PID/fd). The real `SocketClients`.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/SocketClients.h"

namespace ostrel {

// What the kernel's answers say of each socket, by its inode.
struct LocalSocket {
  std::string name;        // the path at which it or its listener was bound; empty for a client's end
  std::uint32_t peer = 0;  // the other end's inode; 0 for none
  bool operator==(const LocalSocket&) const = default;
};

// Takes one datagram of netlink messages apart. False at the end of the list and after an error (`failed`).
// Pure; any bytes are survived.
bool parseSocketList(std::string_view datagram, std::map<std::uint32_t, LocalSocket>& sockets, bool& failed);

class SocketDiagnosis final : public SocketClients {
 public:
  explicit SocketDiagnosis(std::filesystem::path procRoot = "/proc") : procRoot_(std::move(procRoot)) {}

  std::optional<std::set<std::int32_t>> clients(const std::filesystem::path& socket,
                                                const std::vector<std::int32_t>& pids) override;

 private:
  std::vector<std::uint32_t> socketsOf(std::int32_t pid) const;

  std::filesystem::path procRoot_;
};

}  // namespace ostrel
