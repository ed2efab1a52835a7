// The socket of a running Herdr session: reading a pane's screen and receiving events, for which starting a
// command would be too slow.
//
// The wire is newline-delimited JSON over a Unix socket, one request outstanding on a connection. Everything
// here blocks and runs on a background thread; a stop token ends any wait at once with `Cancelled`. All other
// failures are `Failure`s in the user's words.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>

#include "Runtime/Json.h"
#include "Runtime/MainLoop.h"
#include "Runtime/UniqueFd.h"

namespace ostrel::HerdrSocket {

inline constexpr std::size_t kLongestPath =
    103;  // bytes: what `sun_path` holds on every platform, less its NUL
inline constexpr std::size_t kLargestLine = 8'000'000;  // bytes
inline constexpr Duration kReplyTime = std::chrono::seconds(3);

// One connection, used by one thread.
class Wire {
 public:
  explicit Wire(const std::string& path);
  // Over a stream socket that is connected already.
  explicit Wire(UniqueFd connected) : fd_(std::move(connected)) {}

  void send(std::string_view id, std::string_view method, const Json& params);
  // The next line without its newline; what came behind it is kept for the next call. No deadline means
  // waiting for ever.
  std::string next(std::optional<TimePoint> deadline, const std::stop_token& stop);

 private:
  UniqueFd fd_;
  std::string buffer_;
  std::size_t searched_ = 0;  // no newline stands in `buffer_` before this offset
};

// The last 200 lines that the pane shows, without escape sequences: one connection, one request, one reply.
std::string read(const std::string& path, const std::string& pane, const std::string& source,
                 const std::stop_token& stop);

// Calls `receive` once when subscribed and once for each event, on this thread, until stopped (then it throws
// `Cancelled`) or until the connection fails. `protocolVersion` is the version that the server must still
// speak.
void events(const std::string& path, std::int64_t protocolVersion, std::span<const std::string> panes,
            const std::function<void()>& receive, const std::stop_token& stop);

}  // namespace ostrel::HerdrSocket
