#include "Client/HerdrSession.h"

#include <algorithm>
#include <utility>

#include "Herdr/HerdrEvents.h"
#include "Herdr/HerdrProtocol.h"
#include "Runtime/Failure.h"

namespace ostrel {

namespace {

using namespace std::chrono_literals;

constexpr Duration kSettle = 100ms;        // from the first event of a burst to the look
constexpr Duration kBetweenLooks = 500ms;  // in a burst

}  // namespace

HerdrSession::HerdrSession(MainLoop& loop, Server server, std::string name, std::int64_t protocol,
                           std::function<void()> changed)
    : loop_(loop),
      server_(std::move(server)),
      name_(std::move(name)),
      protocol_(protocol),
      changed_(std::move(changed)),
      lastLook_(loop.now() - kBetweenLooks),
      looking_(loop),
      soon_(loop),
      plain_(loop),
      status_(loop) {
  looking_.start(follow());
}

void HerdrSession::setSocket(const std::string& path) {
  if (path == socket_) return;
  socket_ = path;
  plain_.cancel();
  status_.cancel();
  speaks_.reset();
  plainStands_ = false;
  statusStands_ = false;
  statusPanes_.reset();
}

void HerdrSession::look() { wanted_.raise(); }

void HerdrSession::refresh() {
  if (std::exchange(waking_, true)) return;
  soon_.start(wake(std::max(kSettle, lastLook_ + kBetweenLooks - loop_.now())));
}

Task<void> HerdrSession::wake(Duration delay) {
  co_await sleepFor(delay);
  waking_ = false;
  look();
}

void HerdrSession::end() {
  for (TaskScope* const scope : {&looking_, &soon_, &plain_, &status_}) scope->cancel();
}

bool HerdrSession::streams() const {
  return plainStands_ && looked_ && !error_ && statusPanes_ && (statusStands_ || statusPanes_->empty());
}

Task<void> HerdrSession::follow() {
  for (;;) {
    co_await wanted_.wait();
    lastLook_ = loop_.now();
    if (speaks_ == false) speaks_.reset();
    try {
      agents_ = co_await list();
      error_.reset();
      ownWords_.clear();
    } catch (const HerdrProtocol::Refusal& refusal) {
      error_ = ownWords_ = refusal.message();
    } catch (const Failure& failure) {
      error_ = failure.message();
      ownWords_.clear();
      speaks_.reset();
    }
    looked_ = true;
    if (!error_) openStreams();
    changed_();
  }
}

Task<std::vector<HerdrAgent>> HerdrSession::list() {
  std::optional<Json> listed;
  if (!socket_.empty() && co_await speaks()) {
    try {
      listed = co_await server_.port.request(socket_, "agent.list", Json::object());
    } catch (const HerdrProtocol::Refusal&) {
      // The command knows more ways, or says why in full.
    }
  }
  if (!listed) {
    listed = HerdrProtocol::result(
        co_await server_.cli.run(server_.executable, {"--session", name_, "agent", "list"}));
  }
  co_return HerdrProtocol::agentsIn(*listed, name_, std::nullopt);
}

// The expected version was read from the command line; the server may be older, or have been replaced since.
Task<bool> HerdrSession::speaks() {
  if (!speaks_) {
    const Json pong = co_await server_.port.request(socket_, "ping", Json::object());
    speaks_ = json::integer(pong, "protocol") == protocol_;
    speaksOther_ = !*speaks_;
  }
  co_return *speaks_;
}

void HerdrSession::openStreams() {
  if (socket_.empty()) return;
  if (plain_.running() == 0) plain_.start(plainStream());
  std::vector<std::string> panes;
  for (const HerdrAgent& agent : agents_) panes.push_back(agent.paneID);
  std::ranges::sort(panes);
  if (statusPanes_ == panes) return;
  status_.cancel();
  // Opened for other panes it is as good as open: events that come meanwhile are made up for by a look.
  statusStands_ = statusStands_ && statusPanes_.has_value();
  statusPanes_ = panes;
  if (!panes.empty()) status_.start(statusStream(std::move(panes)));
}

Task<void> HerdrSession::plainStream() {
  try {
    if (!co_await speaks()) throw Failure("Herdr API version changed.");
    co_await server_.port.events(
        socket_, HerdrEvents::plainSubscriptions(),
        [this] {
          plainStands_ = true;
          changed_();
        },
        [this](const Json& event) { received(event); });
  } catch (const Failure&) {
    // The next look opens a new one.
  }
  if (speaks_ == true) speaks_.reset();
  // A server that was replaced answers at once; one that never let us in is asked at its usual pace.
  if (std::exchange(plainStands_, false)) refresh();
  changed_();
}

Task<void> HerdrSession::statusStream(std::vector<std::string> panes) {
  try {
    if (!co_await speaks()) throw Failure("Herdr API version changed.");
    co_await server_.port.events(
        socket_, HerdrEvents::statusSubscriptions(panes),
        [this] {
          statusStands_ = true;
          statusFailures_ = 0;
          refresh();  // what changed between the list and the subscription
          changed_();
        },
        [this](const Json& event) { received(event); });
  } catch (const Failure&) {
    // One of the panes may have gone: a fresh list tells.
  }
  statusStands_ = false;
  statusPanes_.reset();
  if (++statusFailures_ == 1) refresh();
  changed_();
}

void HerdrSession::received(const Json& event) {
  if (!HerdrEvents::isNews(event, agents_)) return;
  refresh();
  const auto status = HerdrEvents::statusIn(event);
  if (!status) return;
  // The state itself is shown without waiting for the look.
  const auto agent = std::ranges::find(agents_, status->pane, &HerdrAgent::paneID);
  if (agent == agents_.end() || agent->state == status->state) return;
  agent->state = status->state;
  changed_();
}

}  // namespace ostrel
