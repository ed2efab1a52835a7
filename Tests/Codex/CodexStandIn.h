// A made-up Codex app server on a real socket: the test's own script serves each connection on a thread,
// which ends when the client has gone.
#pragma once

#include <cstring>
#include <functional>
#include <list>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

#include <gtest/gtest.h>

#include "Codex/CodexFrames.h"
#include "Runtime/Json.h"
#include "Runtime/UniqueFd.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {

class CodexStandIn {
 public:
  struct Gone {};
  // One connection as its server sees it.
  struct Peer {
    int fd;
    void open() {
      const std::string asked = head();
      const auto key = asked.find("Sec-WebSocket-Key: ") + 19;
      raw("HTTP/1.1 101 X\r\nA: " + codex::acceptKey(asked.substr(key, 24)) + "\r\n\r\n");
      respond(request(), Json::object());
      EXPECT_EQ(frame(), R"({"method":"initialized"})");
    }
    std::string head() {
      std::string head;
      while (!head.ends_with("\r\n\r\n")) head += take(1);
      return head;
    }
    // The payload of the client's next frame, of less than 64 KiB.
    std::string frame() {
      const std::string head = take(2);
      EXPECT_TRUE(head[1] & 0x80) << "an unmasked frame";
      unsigned length = head[1] & 0x7f;
      if (length == 126) {
        const std::string more = take(2);
        length = static_cast<unsigned char>(more[0]) * 256u + static_cast<unsigned char>(more[1]);
      }
      const std::string mask = take(4);
      std::string payload = take(length);
      for (std::size_t i = 0; i < length; ++i) payload[i] = static_cast<char>(payload[i] ^ mask[i % 4]);
      return payload;
    }
    Json request() { return Json::parse(frame()); }
    void respond(const Json& request, const Json& result, const char* member = "result") {
      raw(bytes(0x81, Json{{"id", request["id"]}, {member, result}}.dump()));
    }
    void refuse(const Json& request, const char* words) { respond(request, {{"message", words}}, "error"); }
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

  // A server's frame.
  static std::string bytes(int first, std::string_view payload) {
    const std::size_t size = payload.size();
    const int width = size <= 125 ? 0 : size <= 0xffff ? 2 : 8;
    std::string bytes{static_cast<char>(first), static_cast<char>(width == 0   ? size
                                                                  : width == 2 ? 126
                                                                               : 127)};
    for (int i = width - 1; i >= 0; --i) bytes += static_cast<char>(size >> (8 * i));
    return bytes.append(payload);
  }

  // Connections count from 0.
  explicit CodexStandIn(std::function<void(Peer&, int number)> script) : script_(std::move(script)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, socket.c_str());
    if (::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener_.get(), 8) != 0)
      throw std::runtime_error("no socket");
    acceptor_ = std::thread([this] { accept(); });
  }
  ~CodexStandIn() {
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
                             Peer peer(fd);
                             try {
                               script_(peer, number);
                             } catch (const Gone&) {
                             }
                             ::shutdown(fd, SHUT_RDWR);
                           }));
    }
  }

  std::function<void(Peer&, int)> script_;
  TemporaryFolder folder_;
  UniqueFd listener_{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  std::list<std::pair<UniqueFd, std::thread>> served_;  // the acceptor's, until it is joined
  std::thread acceptor_;

 public:
  const std::string socket = folder_.path() / "s";
};

}  // namespace ostrel
