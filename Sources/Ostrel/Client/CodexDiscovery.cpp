#include "Client/CodexDiscovery.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace ostrel {

namespace {

using namespace std::chrono_literals;

// After a failure; doubled with each further one. A socket that nobody serves any more (its server was
// killed) can lie there for days.
constexpr Duration kFirstRetry = 200ms;
constexpr Duration kLongestRetry = 1min;
constexpr Duration kSettling = 20ms;
// Where the folder can't be watched.
constexpr Duration kUnwatched = 30s;

}  // namespace

struct CodexDiscovery::Mailbox {
  std::mutex lock;
  std::optional<std::vector<HerdrAgent>> latest;
};

CodexDiscovery::CodexDiscovery(MainLoop& loop, Background& pool, Server server,
                               Published<std::vector<HerdrAgent>>& agents, Watch watch)
    : loop_(loop),
      pool_(pool),
      server_(std::move(server)),
      agents_(agents),
      watch_(std::move(watch)),
      retry_(kFirstRetry),
      tasks_(loop) {}

void CodexDiscovery::start() {
  if (std::exchange(started_, true)) return;
  // Before the first look, so that a server that starts between the two is seen.
  socketWatch_.emplace(server_.files, server_.socket, [this] { wake_.raise(); });
  tasks_.start(run());
}

Task<void> CodexDiscovery::run() {
  for (;;) {
    std::optional<std::string> problem;
    bool refused = false;
    try {
      co_await pool_.run(
          [follow = server_.follow, told = told()](std::stop_token stop) { follow(told, std::move(stop)); });
    } catch (const Cancelled&) {
      throw;
    } catch (const std::exception& failure) {
      refused = true;
      problem = std::string("Codex live connection unavailable: ") + failure.what();
    }
    mailbox_.reset();  // what is still on its way is old
    deliver({}, std::move(problem));
    const Duration pause = rest();
    const bool woken = co_await wake_.waitFor(refused ? std::min(pause, retry_) : pause);
    if (woken) {
      co_await sleepFor(kSettling);
      wake_.lower();
    }
    retry_ = woken ? kFirstRetry : std::min(2 * retry_, kLongestRetry);
  }
}

// Called on the thread that follows.
CodexLive::Told CodexDiscovery::told() {
  mailbox_ = std::make_shared<Mailbox>();
  return [this, &loop = loop_, weak = std::weak_ptr(mailbox_)](std::vector<HerdrAgent> agents) {
    const auto box = weak.lock();
    if (!box) return;
    {
      const std::lock_guard guard(box->lock);
      if (std::exchange(box->latest, std::move(agents))) return;
    }
    loop.post([this, weak] {
      const auto box = weak.lock();
      if (!box) return;
      std::optional<std::vector<HerdrAgent>> latest;
      {
        const std::lock_guard guard(box->lock);
        latest = std::exchange(box->latest, std::nullopt);
      }
      if (!latest) return;
      retry_ = kFirstRetry;
      deliver(std::move(*latest), std::nullopt);
    });
  };
}

void CodexDiscovery::deliver(std::vector<HerdrAgent> agents, std::optional<std::string> problem) {
  std::set<std::string> active;
  for (const HerdrAgent& agent : agents) {
    if (agent.state == AgentState::working || agent.state == AgentState::blocked) active.insert(agent.paneID);
  }
  agents_.set(std::move(agents));
  watch_(active);
  error_.set(std::move(problem));
  passes_.set(*passes_ + 1);
}

// How long to rest at most when nothing is told of the socket.
Duration CodexDiscovery::rest() {
  std::error_code error;
  const auto target = std::filesystem::read_symlink(server_.socket, error);
  targetWatch_.reset();
  if (!error) targetWatch_.emplace(server_.files, target, [this] { wake_.raise(); });
  return socketWatch_->watches() ? std::chrono::hours(1) : kUnwatched;
}

}  // namespace ostrel
