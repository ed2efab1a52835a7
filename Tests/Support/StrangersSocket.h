// A Unix socket on which another user listens, for tests of clients that must not talk to it. Only root can
// make one: where `possible` is false the test is to be skipped.
#pragma once

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "Runtime/UniqueFd.h"

namespace ostrel {

class StrangersSocket {
 public:
  static bool possible() { return ::geteuid() == 0; }

  // Replaces what is at `path`.
  explicit StrangersSocket(const std::string& path) {
    ::unlink(path.c_str());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, path.c_str());
    const bool bound =
        ::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    std::filesystem::permissions(path, std::filesystem::perms::all);
    // The kernel tells clients who called `listen`.
    if (!bound || ::seteuid(65534) != 0) throw std::runtime_error("no socket");
    const bool listens = ::listen(listener_.get(), 8) == 0;
    if (::seteuid(0) != 0 || !listens) throw std::runtime_error("no socket");
  }

  // What the clients that have connected so far have said, together.
  std::string heard() {
    std::string all;
    for (;;) {
      const UniqueFd client(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
      if (!client) return all;
      char bytes[4096];
      for (ssize_t count; (count = ::recv(client.get(), bytes, sizeof bytes, 0)) > 0;)
        all.append(bytes, static_cast<std::size_t>(count));
    }
  }

 private:
  UniqueFd listener_{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
};

}  // namespace ostrel
