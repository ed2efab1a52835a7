#include "App/ProviderConnections.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "Runtime/Files.h"
#include "Runtime/Json.h"
#include "Runtime/Subprocess.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

constexpr std::size_t kOutputLimit = 1u << 20;  // bytes

struct Provider {
  const char* command;
  std::vector<std::string> status;
  const char* signIn;
  const char* connect;  // the name of the sign-in's script
  const char* install;  // what to do without it
  const char* guide;
};

const Provider& about(AgentProvider id) {
  static const Provider codex = {"codex",
                                 {"login", "status"},
                                 "codex login",
                                 "Connect Codex",
                                 "Install Codex, then refresh connections.",
                                 "https://developers.openai.com/codex/cli"};
  static const Provider claude = {"claude",
                                  {"auth", "status"},
                                  "claude auth login --claudeai",
                                  "Connect Claude Code",
                                  "Install Claude Code, then refresh connections.",
                                  "https://docs.claude.com/en/docs/claude-code/setup"};
  return id == AgentProvider::codex ? codex : claude;
}

}  // namespace

ProviderConnections::ProviderConnections(Ports ports, OstrelModel& model, const InterfaceState& shown)
    : ports_(ports),
      model_(model),
      shown_(shown),
      panel_(shown.isPanelVisible.observe([this] { followSignIn(); })),
      page_(shown.page.observe([this] { followSignIn(); })),
      tasks_(ports.loop) {}

ConnectionState ProviderConnections::ofCodex(int status, std::string_view output) {
  if (status != 0) return ConnectionState::disconnected;
  return text::lowercase(output).find("chatgpt") != std::string::npos ? ConnectionState::subscription
                                                                      : ConnectionState::otherAccount;
}

ConnectionState ProviderConnections::ofClaude(int status, std::string_view output) {
  if (status != 0) return ConnectionState::disconnected;
  auto answer = json::parse(output);
  if (!answer) {
    // A warning may stand round it.
    const auto begin = output.find('{');
    const auto end = output.rfind('}');
    if (begin < end && end != std::string_view::npos)
      answer = json::parse(output.substr(begin, end - begin + 1));
  }
  if (!answer || json::boolean(*answer, "loggedIn") != true) return ConnectionState::disconnected;
  const std::string method = text::lowercase(json::string(*answer, "authMethod").value_or(""));
  const bool subscription =
      method.find("claude") != std::string::npos || method.find("oauth") != std::string::npos;
  return subscription ? ConnectionState::subscription : ConnectionState::otherAccount;
}

void ProviderConnections::refreshConnections() {
  for (const AgentProvider id : {AgentProvider::codex, AgentProvider::claude}) {
    if (pending_.insert(id).second) tasks_.start(check(id));
  }
}

// Every folder of the search path may lie on a disk that is slow or has gone.
Task<std::optional<std::filesystem::path>> ProviderConnections::find(std::string name) {
  co_return co_await ports_.pool.run(
      [&tools = ports_.tools, name = std::move(name)](std::stop_token) { return tools.find(name); });
}

Task<void> ProviderConnections::check(AgentProvider provider) {
  const auto found = co_await find(about(provider).command);
  if (!found) {
    pending_.erase(provider);
    setState(provider, ConnectionState::missing);
    co_return;
  }
  const auto known = connections->find(provider);
  if (known == connections->end() || known->second == ConnectionState::missing)
    setState(provider, ConnectionState::checking);
  ConnectionState state = ConnectionState::disconnected;
  try {
    std::string executable = found->string();
    // Codex answers on standard error, Claude Code on standard output, with words on standard error that are
    // no part of the answer.
    state = co_await ports_.pool.run([provider, executable = std::move(executable),
                                      environment = ports_.tools.environment(false)](std::stop_token stop) {
      const bool claude = provider == AgentProvider::claude;
      const Subprocess::Result result =
          Subprocess::run(executable, about(provider).status, environment, kCheckLimit, kOutputLimit,
                          std::move(stop), claude ? SpawnErrors::dropped : SpawnErrors::joined);
      const bool exited = result.end == Subprocess::End::exited;  // one that hangs may have answered
      return claude ? ofClaude(exited ? result.status : 0, result.output)
                    : ofCodex(result.status, result.output);
    });
  } catch (const Failure&) {
    // It could not be started.
  }
  pending_.erase(provider);
  setState(provider, state);
}

void ProviderConnections::connect(AgentProvider id) { tasks_.start(signIn(id)); }

Task<void> ProviderConnections::signIn(AgentProvider id) {
  const Provider& provider = about(id);
  const auto found = co_await find(provider.command);
  if (!found) {
    tasks_.start(openGuide(provider.guide));
    model_.say(provider.install);
    co_return;
  }
  model_.say("Finish signing in in your browser. The connection updates automatically.");
  tasks_.start(openTerminal(provider.signIn, provider.connect));
  signInChecks_ = kSignInChecks;
  followSignIn();
}

void ProviderConnections::lookForHerdr(const std::string& chosen) {
  const TimePoint now = ports_.loop.now();
  const bool same = searched_ && chosen == chosenHerdr_;
  chosenHerdr_ = chosen;
  if (searching_ || (same && now - *searched_ < kSearchInterval)) return;
  searched_ = now;
  searching_ = true;
  tasks_.start(search());
}

Task<void> ProviderConnections::search() {
  Place place{.known = true};
  std::string chosen;
  do {
    chosen = chosenHerdr_;
    // A stale choice is not replaced by a search, so that it fails visibly.
    place.executable = co_await ports_.pool.run(
        [&tools = ports_.tools, chosen](std::stop_token) -> std::optional<std::filesystem::path> {
          if (chosen.empty()) return tools.find("herdr");
          return files::isExecutable(chosen) ? std::optional(std::filesystem::path(chosen)) : std::nullopt;
        });
  } while (chosen != chosenHerdr_);
  searching_ = false;
  herdr.set(std::move(place));
}

bool ProviderConnections::watched() const {
  return *shown_.isPanelVisible && shown_.page->tab == PanelTab::connections;
}

// Only while somebody looks: so the two minutes are two minutes of watching, and a hidden panel costs
// nothing.
void ProviderConnections::followSignIn() {
  if (signInChecks_ == 0 || !watched()) {
    refreshTimer_.reset();
    return;
  }
  refreshTimer_ = ports_.loop.after(kSignInInterval, [this] {
    const bool open = std::ranges::any_of(*connections, [](const auto& entry) {
      return entry.second != ConnectionState::missing && entry.second != ConnectionState::subscription;
    });
    if (open) {
      --signInChecks_;
      refreshConnections();
    }
    followSignIn();
  });
}

void ProviderConnections::becameActive() {
  const TimePoint now = ports_.loop.now();
  if (lastActivation_ && now - *lastActivation_ <= kActivationInterval) return;
  lastActivation_ = now;
  refreshConnections();
}

Task<void> ProviderConnections::openTerminal(std::string command, std::string name) {
  try {
    co_await ports_.terminal.openTerminal(std::move(command), std::move(name));
  } catch (const Failure& failure) {
    model_.say(failure.message());
  }
}

Task<void> ProviderConnections::openGuide(std::string url) {
  try {
    co_await ports_.pool.run(
        [&urls = ports_.urls, url = std::move(url)](std::stop_token) { urls.open(url); });
  } catch (const Failure&) {
    // The status line says what to do.
  }
}

void ProviderConnections::setState(AgentProvider provider, ConnectionState state) {
  auto next = *connections;
  next.insert_or_assign(provider, state);
  connections.set(std::move(next));
}

}  // namespace ostrel
