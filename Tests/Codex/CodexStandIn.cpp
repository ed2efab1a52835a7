#include "CodexStandIn.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>

#include <gtest/gtest.h>

#include "Codex/CodexFrames.h"

namespace ostrel {

std::string CodexStandIn::Peer::take(std::size_t count) {
  std::string bytes(count, '\0');
  if (count && ::recv(fd_.get(), bytes.data(), count, MSG_WAITALL) != static_cast<ssize_t>(count))
    throw Gone();
  return bytes;
}

std::string CodexStandIn::Peer::head() {
  std::string head;
  while (!head.ends_with("\r\n\r\n")) head += take(1);
  return head;
}

void CodexStandIn::Peer::open() {
  const std::string request = head();
  const auto key = request.find("Sec-WebSocket-Key: ") + 19;
  raw("HTTP/1.1 101 Switching Protocols\r\nsec-websocket-accept: " +
      codex::acceptKey(request.substr(key, request.find("\r\n", key) - key)) + "\r\n\r\n");
  serve("initialize", Json::object());
  EXPECT_EQ(frame(), R"({"method":"initialized"})");
}

std::string CodexStandIn::Peer::frame(int* opcode) {
  const std::string head = take(2);
  if (opcode) *opcode = head[0] & 0x0f;
  EXPECT_TRUE(head[1] & 0x80) << "an unmasked frame of the client";
  std::size_t length = head[1] & 0x7f;
  if (length >= 126) {
    const std::string more = take(length == 126 ? 2 : 8);
    length = 0;
    for (const char byte : more) length = length << 8 | static_cast<unsigned char>(byte);
  }
  const std::string mask = take(4);
  std::string payload = take(length);
  for (std::size_t i = 0; i < length; ++i) payload[i] = static_cast<char>(payload[i] ^ mask[i % 4]);
  return payload;
}

Json CodexStandIn::Peer::serve(std::string_view method, const Json& result) {
  const Json asked = request();
  EXPECT_EQ(asked.value("method", ""), method);
  respond(asked, result);
  return asked;
}

void CodexStandIn::Peer::respond(const Json& request, const Json& result) {
  send({{"id", request["id"]}, {"result", result}});
}

void CodexStandIn::Peer::raw(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) throw Gone();
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
}

std::string CodexStandIn::Peer::bytes(int first, std::string_view payload) {
  std::string bytes(1, static_cast<char>(first));
  const std::size_t size = payload.size();
  const int width = size <= 125 ? 0 : size <= 0xffff ? 2 : 8;
  bytes += static_cast<char>(width == 0 ? size : width == 2 ? 126 : 127);
  for (int i = width - 1; i >= 0; --i) bytes += static_cast<char>(size >> (8 * i));
  return bytes.append(payload);
}

CodexStandIn::CodexStandIn(Script script)
    : script_(std::move(script)),
      socket_(folder_.path() / "s"),
      listener_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, socket_.data(), socket_.size());
  if (::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listener_.get(), 8) != 0)
    throw std::runtime_error("no socket");
  acceptor_ = std::thread([this] { accept(); });
}

CodexStandIn::~CodexStandIn() {
  ::shutdown(listener_.get(), SHUT_RDWR);
  acceptor_.join();
  {
    std::lock_guard lock(mutex_);
    for (const int fd : open_) ::shutdown(fd, SHUT_RDWR);
  }
  for (auto& thread : threads_) thread.join();
}

void CodexStandIn::accept() {
  for (int number = 0;; ++number) {
    const int fd = ::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) return;
    std::lock_guard lock(mutex_);
    open_.push_back(fd);
    threads_.emplace_back([this, fd, number] {
      Peer peer(::dup(fd));
      try {
        script_(peer, number);
      } catch (const Peer::Gone&) {
      }
      std::lock_guard guard(mutex_);
      open_.remove(fd);
      ::shutdown(fd, SHUT_RDWR);
      ::close(fd);
    });
  }
}

}  // namespace ostrel
