// The socket of a running Herdr session: its agents, a pane's screen and events, for which starting a command
// would be too slow.
//
// The wire is newline-delimited JSON over a Unix socket. A connection takes one request: the server closes it
// behind the answer, unless that was a subscription, whose connection then carries events. Everything here
// runs on the main loop without blocking it; cancelling the task ends any wait at once. A server that runs as
// another user is told nothing. Failures are `Failure`s in the user's words.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <utility>

#include "Runtime/Json.h"
#include "Runtime/MainLoop.h"
#include "Runtime/Task.h"
#include "Runtime/UniqueFd.h"

namespace ostrel::HerdrSocket {

inline constexpr std::size_t kLargestLine = 8'000'000;  // bytes
inline constexpr Duration kReplyTime = std::chrono::seconds(3);

// One connection, used by one task, which it outlives.
class Wire {
 public:
  explicit Wire(const std::string& path);
  // Over a stream socket that is connected already.
  explicit Wire(UniqueFd connected) : fd_(std::move(connected)) {}

  Task<void> send(std::string id, std::string method, Json params);
  // The next line without its newline; what came behind it is kept for the next call. `Duration::max()` waits
  // for ever.
  Task<std::string> next(Duration limit);

 private:
  UniqueFd fd_;
  std::string buffer_;
  std::size_t searched_ = 0;  // no newline stands in `buffer_` before this offset
};

// One connection, one request, the result of its reply. What Herdr refuses is a `HerdrProtocol::Refusal`.
Task<Json> request(std::string path, std::string method, Json params);

// The last 200 lines that the pane shows, without escape sequences.
Task<std::string> read(std::string path, std::string pane, std::string source);

// Subscribes, calls `subscribed`, then `receive` with each event until the connection fails.
Task<void> events(std::string path, Json subscriptions, std::function<void()> subscribed,
                  std::function<void(const Json& event)> receive);

}  // namespace ostrel::HerdrSocket
