// A server on a Unix socket of its own: the test's script serves each connection on a thread.
#pragma once

#include <cstring>
#include <functional>
#include <list>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

#include "Runtime/UniqueFd.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {

class SocketStandIn {
 public:
  struct Gone {};  // thrown at a script whose client has hung up; it need not catch it
  // One connection as its server sees it.
  struct Peer {
    int fd;
    void raw(std::string_view bytes) {
      while (!bytes.empty()) {
        const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) throw Gone();
        bytes.remove_prefix(static_cast<std::size_t>(sent));
      }
    }
    std::string take(std::size_t count) {
      std::string bytes(count, '\0');
      if (count && ::recv(fd, bytes.data(), count, MSG_WAITALL) != static_cast<ssize_t>(count)) throw Gone();
      return bytes;
    }
  };

  // Connections count from 0.
  explicit SocketStandIn(std::function<void(Peer, int number)> script) : script_(std::move(script)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, socket.c_str());
    if (::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener_.get(), 8) != 0)
      throw std::runtime_error("no socket");
    acceptor_ = std::thread([this] { accept(); });
  }
  SocketStandIn(const SocketStandIn&) = delete;
  SocketStandIn& operator=(const SocketStandIn&) = delete;
  ~SocketStandIn() {
    ::shutdown(listener_.get(), SHUT_RDWR);
    acceptor_.join();
    for (auto& [fd, thread] : served_) {
      ::shutdown(fd.get(), SHUT_RDWR);
      thread.join();
    }
  }

 private:
  void accept() {
    for (int number = 0;; ++number) {
      const int fd = ::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC);
      if (fd < 0) return;
      served_.emplace_back(UniqueFd(fd), std::thread([this, fd, number] {
                             try {
                               script_(Peer(fd), number);
                             } catch (const Gone&) {
                             }
                             ::shutdown(fd, SHUT_RDWR);
                           }));
    }
  }

  std::function<void(Peer, int)> script_;
  TemporaryFolder folder_;
  UniqueFd listener_{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  std::list<std::pair<UniqueFd, std::thread>> served_;  // the acceptor's, until it is joined
  std::thread acceptor_;

 public:
  const std::string socket = folder_.path() / "s";
};

}  // namespace ostrel
