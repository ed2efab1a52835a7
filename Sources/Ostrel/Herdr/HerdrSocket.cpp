#include "Herdr/HerdrSocket.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>

#include "Herdr/HerdrProtocol.h"
#include "Runtime/Failure.h"
#include "Runtime/Readiness.h"
#include "Runtime/UnixSocket.h"

namespace ostrel::HerdrSocket {

namespace {

constexpr std::size_t kBlock = 16'384;  // bytes received at once

bool wouldBlock(ssize_t result) { return result < 0 && (errno == EAGAIN || errno == EINTR); }

}  // namespace

Wire::Wire(const std::string& path) {
  if (!path.starts_with('/') || path.size() > unixSocket::kLongestPath)
    throw Failure("Invalid Herdr socket path.");
  fd_ = unixSocket::make(unixSocket::Mode::nonBlocking);
  if (!fd_) throw Failure("Cannot open Herdr socket.");
  if (const auto refusal = unixSocket::connect(fd_, path)) {
    throw Failure(refusal == unixSocket::Refusal::stranger ? "The Herdr socket belongs to another user."
                                                           : "Herdr socket is unavailable.");
  }
}

Task<void> Wire::send(std::string id, std::string method, Json params) {
  const std::string line =
      json::dump({{"id", std::move(id)}, {"method", std::move(method)}, {"params", std::move(params)}}) +
      "\n";
  for (std::string_view rest = line; !rest.empty();) {
    const ssize_t sent = ::send(fd_.get(), rest.data(), rest.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent > 0) {
      rest.remove_prefix(static_cast<std::size_t>(sent));
      continue;
    }
    if (!wouldBlock(sent) || !co_await readiness(fd_.get(), {.write = true}, kReplyTime))
      throw Failure("Herdr socket write failed.");
  }
}

Task<std::string> Wire::next(Duration limit) {
  const TaskContext context = co_await currentContext();
  const bool forEver = limit == Duration::max();
  const TimePoint end = forEver ? TimePoint::max() : context.loop->now() + limit;
  for (;;) {
    if (const auto newline = buffer_.find('\n', searched_); newline != std::string::npos) {
      std::string line = buffer_.substr(0, newline);
      buffer_.erase(0, newline + 1);
      searched_ = 0;
      co_return line;
    }
    searched_ = buffer_.size();
    if (buffer_.size() > kLargestLine) throw Failure("Herdr response exceeded its size limit.");

    // Before each read, so that a server that never stops talking leaves the loop its turns.
    const Duration left = forEver ? Duration::max() : end - context.loop->now();
    if (left <= Duration::zero() || !co_await readiness(fd_.get(), {.read = true}, left))
      throw Failure("Herdr socket timed out.");
    const std::size_t before = buffer_.size();
    buffer_.resize(before + kBlock);
    const ssize_t received = ::recv(fd_.get(), buffer_.data() + before, kBlock, MSG_DONTWAIT);
    buffer_.resize(before + static_cast<std::size_t>(received > 0 ? received : 0));
    if (received < 1 && !wouldBlock(received)) throw Failure("Herdr disconnected.");
  }
}

Task<Json> request(std::string path, std::string method, Json params) {
  Wire wire(path);
  co_await wire.send(method, method, std::move(params));
  co_return HerdrProtocol::result(co_await wire.next(kReplyTime));
}

Task<std::string> read(std::string path, std::string pane, std::string source) {
  const Json result =
      co_await request(std::move(path), "pane.read",
                       {{"pane_id", pane}, {"source", source}, {"lines", 200}, {"strip_ansi", true}});
  co_return HerdrProtocol::outputIn(result);
}

Task<void> events(std::string path, Json subscriptions, std::function<void()> subscribed,
                  std::function<void(const Json& event)> receive) {
  Wire wire(path);
  co_await wire.send("events", "events.subscribe", {{"subscriptions", std::move(subscriptions)}});
  HerdrProtocol::result(co_await wire.next(kReplyTime));
  subscribed();
  for (;;) {
    const auto value = json::parse(co_await wire.next(Duration::max()));
    if (!value) throw Failure("Herdr sent an event that is no JSON.");
    if (json::member(*value, "event")) receive(*value);
  }
}

}  // namespace ostrel::HerdrSocket
