#include "Herdr/HerdrSocket.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include "Herdr/HerdrProtocol.h"
#include "Runtime/Failure.h"

namespace ostrel::HerdrSocket {

namespace {

constexpr std::size_t kBlock = 16'384;  // bytes received at once

// A descriptor that becomes readable when the token fires, so that a wait needs no polling interval.
class StopSignal {
 public:
  explicit StopSignal(const std::stop_token& stop)
      : fd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), callback_(stop, Raise{fd_.get()}) {}
  int fd() const { return fd_.get(); }

 private:
  struct Raise {
    int fd;
    void operator()() const { ::eventfd_write(fd, 1); }
  };
  UniqueFd fd_;
  std::stop_callback<Raise> callback_;
};

TimePoint now() { return std::chrono::time_point_cast<Duration>(std::chrono::steady_clock::now()); }

void check(const std::stop_token& stop) {
  if (stop.stop_requested()) throw Cancelled();
}

Json subscriptions(std::span<const std::string> panes) {
  Json list = Json::array();
  for (const char* type :
       {"pane.created", "pane.closed", "pane.exited", "pane.updated", "pane.moved", "pane.agent_detected"}) {
    list.push_back({{"type", type}});
  }
  for (const std::string& pane : panes)
    list.push_back({{"type", "pane.agent_status_changed"}, {"pane_id", pane}});
  return list;
}

}  // namespace

Wire::Wire(const std::string& path) {
  if (!path.starts_with('/') || path.size() > kLongestPath) throw Failure("Invalid Herdr socket path.");
  fd_.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd_) throw Failure("Cannot open Herdr socket.");
  // Bounds the connecting too, where the server's queue is full.
  const timeval limit{3, 0};
  ::setsockopt(fd_.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  if (::connect(fd_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw Failure("Herdr socket is unavailable.");
  }
}

void Wire::send(std::string_view id, std::string_view method, const Json& params) {
  std::string line = json::dump({{"id", id}, {"method", method}, {"params", params}}) + "\n";
  for (std::string_view rest = line; !rest.empty();) {
    const ssize_t sent = ::send(fd_.get(), rest.data(), rest.size(), MSG_NOSIGNAL);
    if (sent < 1) throw Failure("Herdr socket write failed.");
    rest.remove_prefix(static_cast<std::size_t>(sent));
  }
}

std::string Wire::next(std::optional<TimePoint> deadline, const std::stop_token& stop) {
  std::optional<StopSignal> stopped;
  for (;;) {
    check(stop);
    if (const auto newline = buffer_.find('\n', searched_); newline != std::string::npos) {
      std::string line = buffer_.substr(0, newline);
      buffer_.erase(0, newline + 1);
      searched_ = 0;
      return line;
    }
    searched_ = buffer_.size();

    int milliseconds = -1;
    if (deadline) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - now()).count();
      if (left <= 0) throw Failure("Herdr socket timed out.");
      milliseconds = static_cast<int>(left);
    }
    if (!stopped) stopped.emplace(stop);
    pollfd ready[2] = {{fd_.get(), POLLIN, 0}, {stopped->fd(), POLLIN, 0}};
    const int count = ::poll(ready, 2, milliseconds);
    if (count < 0 && errno != EINTR) throw Failure("Herdr socket read failed.");
    if (count <= 0 || ready[0].revents == 0) continue;

    const std::size_t before = buffer_.size();
    buffer_.resize(before + kBlock);
    const ssize_t received = ::recv(fd_.get(), buffer_.data() + before, kBlock, 0);
    buffer_.resize(before + static_cast<std::size_t>(received > 0 ? received : 0));
    if (received < 1) throw Failure("Herdr disconnected.");
    if (buffer_.size() > kLargestLine) throw Failure("Herdr response exceeded its size limit.");
  }
}

std::string read(const std::string& path, const std::string& pane, const std::string& source,
                 const std::stop_token& stop) {
  Wire wire(path);
  wire.send("read", "pane.read",
            {{"pane_id", pane}, {"source", source}, {"lines", 200}, {"strip_ansi", true}});
  return HerdrProtocol::output(wire.next(now() + kReplyTime, stop));
}

void events(const std::string& path, std::int64_t protocolVersion, std::span<const std::string> panes,
            const std::function<void()>& receive, const std::stop_token& stop) {
  Wire wire(path);
  wire.send("ping", "ping", Json::object());
  const Json pong = HerdrProtocol::result(wire.next(now() + kReplyTime, stop));
  // The version was read from the command line earlier; the server may have been replaced since.
  if (json::integer(pong, "protocol") != protocolVersion) throw Failure("Herdr API version changed.");
  wire.send("events", "events.subscribe", {{"subscriptions", subscriptions(panes)}});
  HerdrProtocol::result(wire.next(now() + kReplyTime, stop));
  receive();  // whatever changed before the subscription
  for (;;) {
    const auto value = json::parse(wire.next({}, stop));
    if (!value) throw Failure("Herdr sent an event that is no JSON.");
    if (json::member(*value, "event")) receive();
  }
}

}  // namespace ostrel::HerdrSocket
