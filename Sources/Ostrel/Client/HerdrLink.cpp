#include "Client/HerdrLink.h"

#include <algorithm>
#include <utility>

#include <fmt/ranges.h>

#include "Herdr/HerdrProtocol.h"
#include "Platform/PreferenceKeys.h"
#include "Runtime/Failure.h"
#include "Runtime/Json.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

using namespace std::chrono_literals;
namespace keys = preferenceKeys;

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

HerdrLink::HerdrLink(MainLoop& loop, Preferences& preferences, HerdrPort& port, Background& commands)
    : loop_(loop),
      preferences_(preferences),
      port_(port),
      cli_(port, commands),
      heartbeat_(loop),
      polling_(loop) {
  readSettings();
}

void HerdrLink::readSettings() {
  executablePath_.set(preferences_.get(keys::kHerdrExecutable).value_or(""));
  sessionName_.set(preferences_.get(keys::kHerdrSession).value_or(""));
}

Task<std::optional<std::filesystem::path>> HerdrLink::executable() {
  if (executable_) co_return executable_;
  co_return co_await cli_.executable(*executablePath_);
}

Task<std::string> HerdrLink::screen(HerdrAgent agent) {
  if (const auto socket = socketOf(agent)) co_return co_await port_.read(*socket, agent.paneID, "visible");
  const auto program = co_await executable();
  if (!program) throw Failure("Herdr was not found. Install it or choose its executable below.");
  std::vector<std::string> arguments = agent.commandPrefix();
  arguments.insert(arguments.end(),
                   {"pane", "read", agent.paneID, "--source", "visible", "--format", "text"});
  std::string text = co_await cli_.run(*program, std::move(arguments));
  if (!text::isUtf8(text)) throw Failure("Terminal output is not valid UTF-8 text.");
  co_return text;
}

std::optional<std::string> HerdrLink::socketOf(const HerdrAgent& agent) const {
  const auto found = agent.isRemote() ? sessions_.end() : sessions_.find(agent.session);
  if (found == sessions_.end() || found->second->socket().empty()) return std::nullopt;
  return found->second->socket();
}

std::string HerdrLink::status() const {
  if (*connecting_) return "Connecting…";
  if (*connected_) return fmt::format("Connected · {} sessions", *sessionCount_);
  return *error_ ? "Connection unavailable" : "Not connected";
}

void HerdrLink::start(bool whereInstalled) {
  disconnect(false);
  active_.set(true);
  connecting_.set(true);
  polling_.start(run(std::string(text::trim(*sessionName_)), whereInstalled));
}

Task<void> HerdrLink::run(std::string filter, bool whereInstalled) {
  ended_.clear();
  executable_ = co_await cli_.executable(*executablePath_);
  if (!executable_) {
    std::optional<std::string> why;
    if (!whereInstalled) why = "Herdr was not found. Install it or choose its executable below.";
    giveUp(std::move(why));
    co_return;
  }
  if (filter.starts_with('-')) {
    giveUp("Enter a local Herdr session name, such as default.");
    co_return;
  }
  preferences_.put(keys::kHerdrExecutable, executable_->string());
  preferences_.put(keys::kHerdrSession, filter);
  if (onConnect) onConnect();
  lastStep_ = loop_.now();
  wanted_.raise();
  heartbeat_.start(beat());
  co_await poll(*executable_, std::move(filter));
}

void HerdrLink::giveUp(std::optional<std::string> why) {
  error_.set(std::move(why));
  executable_.reset();
  connecting_.set(false);
  active_.set(false);
  heartbeat_.cancel();
}

void HerdrLink::disconnect(bool forget) {
  heartbeat_.cancel();
  polling_.cancel();
  executable_.reset();
  dropSessions();
  wanted_.lower();
  listError_.reset();
  if (forget) preferences_.put(keys::kHerdrReconnect, false);
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
  std::optional<std::string> problem;
  try {
    protocol_ = protocolIn(co_await cli_.run(executable, {"api", "schema", "--json"}));
  } catch (const Failure& failure) {
    problem = failure.message();
  }
  if (problem) {
    // An unsupported Herdr is not asked again.
    giveUp("Could not read Herdr’s API schema: " + *problem);
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
      session = std::make_unique<HerdrSession>(loop_, HerdrSession::Server{port_, cli_, executable}, name,
                                               protocol_, [this] { publish(); });
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
  if (*connected_) preferences_.put(keys::kHerdrReconnect, true);
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
