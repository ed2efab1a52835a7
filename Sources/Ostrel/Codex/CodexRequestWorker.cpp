#include "Codex/CodexRequestWorker.h"

#include <algorithm>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <unistd.h>
#include <utility>

#include "Codex/CodexLive.h"
#include "Runtime/Random.h"

namespace ostrel {

namespace {

// Lets answers and the joining go on while a server sends without end.
constexpr int kMostMessagesAtOnce = 100;

TimePoint now() { return std::chrono::time_point_cast<Duration>(std::chrono::steady_clock::now()); }

// For `poll`; -1 is for ever.
int millisecondsUntil(TimePoint until) {
  if (until == TimePoint::max()) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - now()).count();
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, 3'600'000));
}

// What can't be joined yet is mostly a thread in its first turn, whose file comes in a moment.
constexpr Duration kFirstLook = std::chrono::milliseconds(50);
// While a message has come in part.
constexpr Duration kPartLook = std::chrono::milliseconds(500);

}  // namespace

CodexRequestWorker::CodexRequestWorker(std::string socket, CodexConnectionState::Emit emit, Pace pace)
    : socket_(std::move(socket)), emit_(std::move(emit)), pace_(pace) {
  int ends[2];
  // Without a pipe everything still happens, a second later.
  if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return;
  wakeReader_.reset(ends[0]);
  wakeWriter_.reset(ends[1]);
}

CodexRequestWorker::~CodexRequestWorker() {
  stop();
  if (thread_.joinable()) thread_.join();
}

void CodexRequestWorker::start() {
  thread_ = std::thread([this] { run(); });
}

void CodexRequestWorker::watch(std::set<std::string> threads) {
  {
    std::lock_guard guard(lock_);
    if (threads == desired_) return;
    desired_ = std::move(threads);
  }
  ring();
}

void CodexRequestWorker::reply(CodexRequest request, std::string result) {
  {
    std::lock_guard guard(lock_);
    replies_.push_back({std::move(request), std::move(result)});
  }
  ring();
}

void CodexRequestWorker::stop() {
  {
    std::lock_guard guard(lock_);
    replies_.clear();
  }
  stopping_.request_stop();
  ring();
}

void CodexRequestWorker::ring() {
  // A full pipe rings already.
  [[maybe_unused]] const ssize_t written = ::write(wakeWriter_.get(), "", 1);
}

void CodexRequestWorker::run() {
  while (!stopping_.stop_requested()) {
    if (desired().empty()) {
      waitForWork(-1, TimePoint::max());
      continue;
    }
    try {
      serve(randomUuid());
    } catch (const Cancelled&) {
      return;
    } catch (const std::exception& failure) {
      {
        std::lock_guard guard(lock_);
        replies_.clear();  // they can't be delivered any more
      }
      emit_(codexevent::Reset{randomUuid(), std::string("Codex controls reconnecting: ") + failure.what()});
      pause();
    }
  }
}

void CodexRequestWorker::serve(const std::string& epoch) {
  CodexLocalServer::Connection connection(socket_, stopping_.get_token(), pace_.limits);
  // Only now: until there is a connection, the words of the last failure stand.
  emit_(codexevent::Reset{epoch, std::nullopt});
  CodexConnectionState state(epoch, emit_);
  connection.onEvent = [&state](std::string bytes) { state.event(std::move(bytes)); };
  TimePoint nextSync = now();
  Duration look = kFirstLook;
  TimePoint end = TimePoint::max();  // when nobody has wanted a thread for long enough
  while (!stopping_.stop_requested()) {
    if (now() >= nextSync) {
      sync(connection, state);
      const std::set<std::string> wanted = desired();
      const bool complete = std::ranges::includes(state.connected(), wanted);
      nextSync = complete ? TimePoint::max() : now() + std::min(look, pace_.sync);
      look = std::min(2 * look, pace_.sync);
      if (!wanted.empty()) {
        end = TimePoint::max();
      } else if (end == TimePoint::max()) {
        end = now() + pace_.linger;
      }
    }
    if (now() >= end) return;
    TimePoint until = std::min(nextSync, end);
    if (connection.midMessage()) until = std::min(until, now() + kPartLook);
    const Ready ready = waitForWork(connection.fd(), until);
    if (ready.connection || connection.midMessage()) receive(connection, state);
    if (!ready.mail) continue;
    answer(connection, state);
    nextSync = now();
    look = kFirstLook;
  }
}

void CodexRequestWorker::sync(CodexLocalServer::Connection& connection, CodexConnectionState& state) {
  const std::set<std::string> wanted = desired();
  std::set<std::string> targets;
  if (!std::ranges::includes(state.connected(), wanted)) {
    for (std::string& thread : CodexLive::loadedIDs(connection)) {
      if (wanted.contains(thread) && !state.connected().contains(thread)) targets.insert(std::move(thread));
    }
  }
  for (const std::string& thread : targets) join(connection, state, thread);
  std::vector<std::string> unwanted;
  std::ranges::set_difference(state.connected(), wanted, std::back_inserter(unwanted));
  for (const std::string& thread : unwanted) leave(connection, state, thread);
}

void CodexRequestWorker::leave(CodexLocalServer::Connection& connection, CodexConnectionState& state,
                               const std::string& thread) {
  state.leave(thread);
  try {
    connection.call("thread/unsubscribe", {{"threadId", thread}});
  } catch (const CodexLocalServer::Refusal&) {
    // It has gone by itself.
  }
}

void CodexRequestWorker::join(CodexLocalServer::Connection& connection, CodexConnectionState& state,
                              const std::string& thread) {
  // What runs at this moment stands in the page that comes with the response, and in no later one.
  const Json page{{"limit", 1}, {"sortDirection", "desc"}, {"itemsView", "full"}};
  Json resumed;
  state.joining(thread);
  try {
    resumed = connection.call("thread/resume",
                              {{"threadId", thread}, {"excludeTurns", true}, {"initialTurnsPage", page}});
  } catch (const CodexLocalServer::Refusal&) {
    // Nothing was said in it yet, or another process writes it: tried again at the next sync.
    state.refused(thread);
    return;
  }
  const Json* const joined = json::member(resumed, "thread");
  if (!joined || json::string(*joined, "id") != thread)
    throw Failure("Codex joined a different conversation.");
  state.joined(thread);
  if (const Json* const first = json::member(resumed, "initialTurnsPage"); first && first->is_object()) {
    state.turns(thread, *first);
    return;
  }
  Json params = page;
  params["threadId"] = thread;
  try {
    state.turns(thread, connection.call("thread/turns/list", params));
  } catch (const CodexLocalServer::Refusal&) {
    // A card does without the items.
  }
}

CodexRequestWorker::Ready CodexRequestWorker::waitForWork(int connection, TimePoint until) {
  pollfd ready[2] = {{connection, POLLIN, 0}, {wakeReader_.get(), POLLIN, 0}};
  // Without a pipe the mailbox is looked into each second.
  if (!wakeReader_) until = std::min(until, now() + std::chrono::seconds(1));
  if (::poll(ready, 2, millisecondsUntil(until)) <= 0) return {.mail = !wakeReader_};
  char bytes[64];
  while (ready[1].revents != 0 && ::read(wakeReader_.get(), bytes, sizeof bytes) > 0) continue;
  return {ready[0].revents != 0, ready[1].revents != 0 || !wakeReader_};
}

void CodexRequestWorker::receive(CodexLocalServer::Connection& connection, CodexConnectionState& state) {
  for (int count = 0; count < kMostMessagesAtOnce; ++count) {
    auto message = connection.arrived();
    if (!message) return;
    state.event(std::move(*message));
  }
}

void CodexRequestWorker::answer(CodexLocalServer::Connection& connection, CodexConnectionState& state) {
  std::vector<Reply> replies;
  {
    std::lock_guard guard(lock_);
    replies.swap(replies_);
  }
  for (const Reply& reply : replies) {
    const auto text = state.answer(reply.request, reply.result, desired());
    if (!text) continue;
    connection.renewDeadline();
    connection.frame(*text);
    emit_(codexevent::Sent{reply.request.id()});
  }
}

void CodexRequestWorker::pause() {
  const TimePoint end = now() + pace_.retry;
  while (!stopping_.stop_requested() && now() < end) waitForWork(-1, end);
}

std::set<std::string> CodexRequestWorker::desired() {
  std::lock_guard guard(lock_);
  return desired_;
}

}  // namespace ostrel
