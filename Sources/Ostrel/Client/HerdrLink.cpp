#include "Client/HerdrLink.h"

#include <algorithm>
#include <utility>

#include <fmt/ranges.h>

#include "Herdr/HerdrProtocol.h"
#include "Runtime/Failure.h"
#include "Runtime/Json.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

using namespace std::chrono_literals;

constexpr Duration kBeat = 2s;
constexpr Duration kBeatWithStreams = 30s;

std::int64_t protocolIn(const std::string& document) {
  const auto schema = json::parse(document);
  const auto protocol = schema ? json::integer(*schema, "protocol") : std::nullopt;
  if (!protocol || !json::member(*schema, "schemas")) {
    throw Failure("Unsupported Herdr schema document. Update Herdr and try again.");
  }
  return *protocol;
}

}  // namespace

HerdrLink::HerdrLink(MainLoop& loop, Preferences& preferences, Doors doors)
    : loop_(loop),
      preferences_(preferences),
      doors_(std::move(doors)),
      cli_(doors_.run),
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
  const auto found = sessions_.find(session);
  if (found == sessions_.end() || found->second->socket().empty()) return std::nullopt;
  return found->second->socket();
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
  lastStep_ = loop_.now();
  wanted_.raise();
  heartbeat_.start(beat());
  polling_.start(poll(*executable, filter));
}

void HerdrLink::disconnect(bool forget) {
  heartbeat_.cancel();
  polling_.cancel();
  dropSessions();
  wanted_.lower();
  listError_.reset();
  if (forget) preferences_.set("herdrReconnect", false);
  active_.set(false);
  sessionCount_.set(0);
  inventoryComplete_.set(false);
  connected_.set(false);
  connecting_.set(false);
  error_.set(std::nullopt);
  agents_.set({});
}

// Who disconnects may have been called by one of the sessions: they only end here.
void HerdrLink::dropSessions() {
  for (auto& [name, session] : sessions_) {
    session->end();
    ended_.push_back(std::move(session));
  }
  sessions_.clear();
}

void HerdrLink::refresh(const std::string& session) {
  if (const auto found = sessions_.find(session); found != sessions_.end()) found->second->refresh();
}

bool HerdrLink::everySessionStreams() const {
  return !sessions_.empty() && !listError_ &&
         std::ranges::all_of(sessions_, [](const auto& each) { return each.second->streams(); });
}

Task<void> HerdrLink::beat() {
  for (;;) {
    const Duration left = lastStep_ + (everySessionStreams() ? kBeatWithStreams : kBeat) - loop_.now();
    if (left > Duration::zero()) {
      co_await pace_.waitFor(left);
    } else {
      lastStep_ = loop_.now();
      wanted_.raise();
    }
  }
}

Task<void> HerdrLink::poll(std::filesystem::path executable, std::string filter) {
  ended_.clear();
  std::optional<std::string> problem;
  try {
    protocol_ = protocolIn(co_await cli_.run(executable, {"api", "schema", "--json"}));
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
    co_await wanted_.wait();
    try {
      co_await step(executable, filter);
      problem.reset();
    } catch (const Failure& failure) {
      problem = failure.message();
    }
    if (problem) listFailed(*problem);
    lastStep_ = loop_.now();
    publish();
  }
}

Task<void> HerdrLink::step(std::filesystem::path executable, std::string filter) {
  if (std::ranges::any_of(sessions_, [](const auto& each) { return each.second->speaksOther(); }))
    protocol_ = protocolIn(co_await cli_.run(executable, {"api", "schema", "--json"}));
  auto sockets = HerdrProtocol::sockets(co_await cli_.run(executable, {"session", "list", "--json"}));
  const std::size_t running = sockets.size();
  if (!filter.empty()) std::erase_if(sockets, [&](const auto& each) { return each.first != filter; });
  filtered_ = sockets.size() != running;
  listError_.reset();
  setSessions(sockets, executable);
}

void HerdrLink::setSessions(const std::map<std::string, std::string>& sockets,
                            const std::filesystem::path& executable) {
  std::erase_if(sessions_, [&](const auto& each) { return !sockets.contains(each.first); });
  for (const auto& [name, socket] : sockets) {
    std::unique_ptr<HerdrSession>& session = sessions_[name];
    if (!session) {
      session = std::make_unique<HerdrSession>(
          loop_, name, protocol_,
          HerdrSession::Doors{.request = doors_.request,
                              .events = doors_.events,
                              .command =
                                  [this, executable](std::vector<std::string> arguments) {
                                    return cli_.run(executable, std::move(arguments));
                                  },
                              .changed = [this] { publish(); }});
    }
    session->setProtocol(protocol_);
    session->setSocket(socket);
    session->look();
  }
}

// A session whose own socket stands tells for itself.
void HerdrLink::listFailed(const std::string& message) {
  listError_ = message + " Retrying automatically.";
  std::erase_if(sessions_, [](const auto& each) { return !each.second->hears(); });
  for (const auto& [name, session] : sessions_) session->look();
}

void HerdrLink::publish() {
  if (!*active_) return;
  std::vector<HerdrAgent> agents;
  int answered = 0;
  bool looked = true;
  for (const auto& [name, session] : sessions_) {
    agents.insert(agents.end(), session->agents().begin(), session->agents().end());
    looked &= session->looked();
    if (session->looked() && !session->error()) ++answered;
  }
  agents_.set(std::move(agents));
  sessionCount_.set(answered);
  inventoryComplete_.set(!filtered_ && !listError_ && static_cast<std::size_t>(answered) == sessions_.size());
  connected_.set(answered > 0);
  if (looked) connecting_.set(false);
  error_.set(problem());
  if (*connected_) preferences_.set("herdrReconnect", true);
  pace_.raise();
  steps_.set(*steps_ + 1);
}

std::optional<std::string> HerdrLink::problem() const {
  if (listError_) return listError_;
  if (sessions_.empty()) return "No running Herdr sessions yet. Start Herdr; we’ll keep looking.";
  std::vector<std::string> failed;
  for (const auto& [name, session] : sessions_) {
    if (!session->error()) continue;
    const std::string_view words = text::dropSuffix(session->ownWords(), ".");
    failed.push_back(words.empty() ? name : fmt::format("{} ({})", name, words));
  }
  if (failed.empty()) return std::nullopt;
  return fmt::format("Could not reach: {}. Retrying automatically.", fmt::join(failed, ", "));
}

}  // namespace ostrel
