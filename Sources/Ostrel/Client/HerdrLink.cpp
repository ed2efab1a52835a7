#include "Client/HerdrLink.h"

#include <algorithm>
#include <utility>

#include <fmt/ranges.h>

#include "Herdr/HerdrProtocol.h"
#include "Runtime/Json.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

using namespace std::chrono_literals;

constexpr Duration kBeat = 2s;
constexpr Duration kBeatWithStreams = 30s;
constexpr Duration kDebounce = 100ms;
constexpr unsigned kMostStreams = 64;

// The sockets of `targets`, from the document that also listed the sessions.
std::map<std::string, std::string> socketPathsIn(const std::string& document,
                                                 const std::vector<std::string>& targets) {
  std::map<std::string, std::string> paths;
  const Json result = HerdrProtocol::result(document);
  const Json* sessions = json::member(result, "sessions");
  if (!sessions || !sessions->is_array()) return paths;
  for (const Json& session : *sessions) {
    const auto name = json::string(session, "name");
    const auto path = json::string(session, "socket_path");
    if (name && path && path->starts_with('/') && std::ranges::find(targets, *name) != targets.end()) {
      paths[*name] = *path;
    }
  }
  return paths;
}

std::int64_t protocolIn(const std::string& document) {
  const auto schema = json::parse(document);
  const auto protocol = schema ? json::integer(*schema, "protocol") : std::nullopt;
  if (!protocol || !json::member(*schema, "schemas")) {
    throw Failure("Unsupported Herdr schema document. Update Herdr and try again.");
  }
  return *protocol;
}

}  // namespace

HerdrLink::HerdrLink(MainLoop& loop, BackgroundPool& pool, Preferences& preferences, Doors doors)
    : loop_(loop),
      pool_(pool),
      preferences_(preferences),
      doors_(std::move(doors)),
      streamPool_(kMostStreams),
      heartbeat_(loop),
      polling_(loop) {
  readSettings();
}

void HerdrLink::readSettings() {
  executablePath_.set(preferences_.string("herdrExecutable").value_or(""));
  sessionName_.set(preferences_.string("herdrSessionOverride").value_or(""));
}

std::optional<std::filesystem::path> HerdrLink::resolveExecutable() const {
  if (executablePath_->empty()) return doors_.find();
  if (!doors_.isExecutable(*executablePath_)) return std::nullopt;
  return *executablePath_;
}

std::optional<std::string> HerdrLink::socketPath(const std::string& session) const {
  const auto found = socketPaths_.find(session);
  return found == socketPaths_.end() ? std::nullopt : std::optional(found->second);
}

std::string HerdrLink::status() const {
  if (*connecting_) return "Connecting…";
  if (*connected_) return fmt::format("Connected · {} sessions", *sessionCount_);
  return *error_ ? "Connection unavailable" : "Not connected";
}

void HerdrLink::connect() {
  disconnect(false);
  const auto executable = resolveExecutable();
  if (!executable) {
    error_.set("Herdr was not found. Install it or choose its executable below.");
    return;
  }
  const std::string filter(text::trim(*sessionName_));
  if (filter.starts_with('-')) {
    error_.set("Enter a local Herdr session name, such as default.");
    return;
  }
  preferences_.set("herdrExecutable", executable->string());
  preferences_.set("herdrSessionOverride", filter);
  if (onConnect) onConnect();
  active_.set(true);
  connecting_.set(true);
  error_.set(std::nullopt);
  generation_ = std::make_shared<bool>(true);
  refresh_.raise();
  heartbeat_.start(beat());
  polling_.start(poll(*executable, filter));
}

void HerdrLink::disconnect(bool forget) {
  streams_.clear();
  socketPaths_.clear();
  heartbeat_.cancel();
  polling_.cancel();
  refresh_.lower();
  refreshPending_ = false;
  generation_.reset();
  if (forget) preferences_.set("herdrReconnect", false);
  active_.set(false);
  sessionCount_.set(0);
  inventoryComplete_.set(false);
  connected_.set(false);
  connecting_.set(false);
  error_.set(std::nullopt);
  agents_.set({});
}

void HerdrLink::requestRefresh() {
  if (!*active_ || std::exchange(refreshPending_, true)) return;
  polling_.start(debounce());
}

Task<void> HerdrLink::debounce() {
  co_await sleepFor(kDebounce);
  refreshPending_ = false;
  refresh_.raise();
}

Task<void> HerdrLink::beat() {
  for (;;) {
    co_await sleepFor(streams_.empty() ? kBeat : kBeatWithStreams);
    refresh_.raise();
  }
}

Task<std::string> HerdrLink::command(std::filesystem::path executable, std::vector<std::string> arguments) {
  co_return co_await pool_.run([run = doors_.run, executable = std::move(executable),
                                arguments = std::move(arguments)](std::stop_token stop) {
    return run(executable, arguments, HerdrCommand::kUsualTime, std::move(stop));
  });
}

Task<void> HerdrLink::poll(std::filesystem::path executable, std::string filter) {
  std::optional<std::string> problem;
  try {
    protocol_ = protocolIn(co_await command(executable, {"api", "schema", "--json"}));
  } catch (const Failure& failure) {
    problem = failure.message();
  }
  if (problem) {
    // An unsupported Herdr is not asked again.
    error_.set("Could not read Herdr’s API schema: " + *problem);
    connecting_.set(false);
    active_.set(false);
    heartbeat_.cancel();
    co_return;
  }
  for (;;) {
    co_await refresh_.wait();
    try {
      co_await step(executable, filter);
    } catch (const Failure& failure) {
      problem = failure.message();
    }
    if (problem) stepFailed(*problem);
    problem.reset();
    steps_.set(*steps_ + 1);
  }
}

Task<void> HerdrLink::step(std::filesystem::path executable, std::string filter) {
  const std::string document = co_await command(executable, {"session", "list", "--json"});
  const std::vector<std::string> running = HerdrProtocol::sessions(document);
  std::vector<std::string> targets = running;
  if (!filter.empty()) std::erase_if(targets, [&](const std::string& name) { return name != filter; });

  std::vector<HerdrAgent> found;
  std::vector<std::string> failed;
  for (const std::string& session : targets) {
    try {
      const auto list = HerdrProtocol::agents(
          co_await command(executable, {"--session", session, "agent", "list"}), session, std::nullopt);
      found.insert(found.end(), list.begin(), list.end());
    } catch (const Failure&) {
      failed.push_back(session);  // one dead session does not hide the others
    }
  }

  const auto answered = static_cast<int>(targets.size() - failed.size());
  agents_.set(std::move(found));
  sessionCount_.set(answered);
  inventoryComplete_.set(failed.empty() && targets.size() == running.size());
  connected_.set(answered > 0);
  connecting_.set(false);
  if (targets.empty()) {
    error_.set("No running Herdr sessions yet. Start Herdr; we’ll keep looking.");
  } else if (!failed.empty()) {
    error_.set(fmt::format("Could not reach: {}. Retrying automatically.", fmt::join(failed, ", ")));
  } else {
    error_.set(std::nullopt);
  }
  if (*connected_) preferences_.set("herdrReconnect", true);
  socketPaths_ = socketPathsIn(document, targets);
  updateEventStreams();
}

void HerdrLink::stepFailed(const std::string& message) {
  agents_.set({});
  inventoryComplete_.set(false);
  connected_.set(false);
  connecting_.set(false);
  error_.set(message + " Retrying automatically.");
}

void HerdrLink::updateEventStreams() {
  std::erase_if(streams_, [&](const auto& entry) { return !socketPaths_.contains(entry.first); });
  for (const auto& [session, path] : socketPaths_) {
    std::vector<std::string> panes;
    for (const HerdrAgent& agent : *agents_) {
      if (agent.session == session) panes.push_back(agent.paneID);
    }
    std::ranges::sort(panes);
    std::string key = path;
    for (const std::string& pane : panes) key += "|" + pane;
    Stream& current = streams_[session];
    if (current.key == key) continue;
    current.key = std::move(key);
    current.task = std::make_unique<TaskScope>(loop_);
    current.task->start(stream(session, path, std::move(panes)));
  }
}

Task<void> HerdrLink::stream(std::string session, std::string path, std::vector<std::string> panes) {
  // Events come on the stream's own thread; what they reach on the main one is looked for again there.
  const auto receive = [loop = &loop_, weak = std::weak_ptr(generation_), link = this] {
    loop->post([weak, link] {
      if (weak.lock()) link->requestRefresh();
    });
  };
  try {
    co_await streamPool_.run([events = doors_.events, path, panes, receive, protocol = protocol_](
                                 std::stop_token stop) { events(path, protocol, panes, receive, stop); });
  } catch (const Failure&) {
    // Polling still runs; the next step opens a new stream. The entry stays, and with it the slow heartbeat.
  }
  streams_[session].key.clear();
}

}  // namespace ostrel
