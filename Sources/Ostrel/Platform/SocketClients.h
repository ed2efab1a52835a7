// Which processes are connected to a local socket, from the kernel. `SocketDiagnosis` (Platform/Linux) is the
// real one. Callable from any thread; blocks for well under a millisecond.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <set>
#include <vector>

namespace ostrel {

class SocketClients {
 public:
  SocketClients() = default;
  SocketClients(const SocketClients&) = delete;
  SocketClients& operator=(const SocketClients&) = delete;
  virtual ~SocketClients() = default;

  // Those of `pids` (of the own user) that hold a connection to whoever listens at `socket`; symbolic links
  // are followed. Nothing where the kernel does not tell.
  virtual std::optional<std::set<std::int32_t>> clients(const std::filesystem::path& socket,
                                                        const std::vector<std::int32_t>& pids) = 0;
};

}  // namespace ostrel
