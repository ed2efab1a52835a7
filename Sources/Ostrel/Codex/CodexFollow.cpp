// `CodexLive::follow`.
#include <algorithm>
#include <poll.h>
#include <sys/stat.h>
#include <utility>

#include "Codex/CodexLive.h"
#include "Codex/CodexThreads.h"

namespace ostrel::CodexLive {

namespace {

using namespace std::chrono_literals;

// Lets the list be told while a server sends without end.
constexpr int kMostMessagesAtOnce = 100;
// While a message has come in part.
constexpr Duration kLook = 500ms;

TimePoint now() { return std::chrono::time_point_cast<Duration>(std::chrono::steady_clock::now()); }
WallTime wallNow() { return std::chrono::time_point_cast<Duration>(std::chrono::system_clock::now()); }

// Whatever was told meanwhile stays as it was told: what is read here may be older.
void readAll(CodexLocalServer::Connection& connection, CodexThreads& threads) {
  std::set<std::string> unseen = threads.known();
  for (const std::string& id : loadedIDs(connection)) {
    unseen.erase(id);
    threads.read(id, readThread(connection, id), wallNow());
  }
  threads.forget(unseen);
}

void waitForMessage(const CodexLocalServer::Connection& connection, TimePoint until) {
  if (connection.midMessage()) until = std::min(until, now() + kLook);
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - now()).count();
  pollfd ready{connection.fd(), POLLIN, 0};
  ::poll(&ready, 1, static_cast<int>(std::clamp<std::int64_t>(left, 0, 3'600'000)));
}

}  // namespace

void follow(const std::string& socket, const Told& told, std::stop_token stop, Pace pace) {
  struct stat status{};
  if (::lstat(socket.c_str(), &status) != 0 && errno == ENOENT) return;
  CodexLocalServer::Connection connection(socket, std::move(stop), pace.limits);
  CodexThreads threads;
  connection.onEvent = [&threads](std::string bytes) { threads.event(std::move(bytes), wallNow()); };
  TimePoint check = now();
  bool first = true;
  for (;;) {
    if (now() >= check) {
      readAll(connection, threads);
      check = now() + pace.check;
    }
    for (const std::string& id : threads.takeUnread())
      threads.read(id, readThread(connection, id), wallNow());
    if (threads.takeChanged() || first) told(threads.agents());
    first = false;
    waitForMessage(connection, check);
    for (int count = 0; count < kMostMessagesAtOnce; ++count) {
      auto message = connection.arrived();
      if (!message) break;
      threads.event(std::move(*message), wallNow());
    }
  }
}

}  // namespace ostrel::CodexLive
