#include "App/EdgeState.h"

#include <algorithm>
#include <utility>

#include "App/OstrelSetting.h"

namespace ostrel {

// Following the pointer, and what the views and the desktop ask for. The windows themselves:
// EdgeStateWindows.cpp.

EdgeState::EdgeState(Ports ports, OstrelModel& model, InterfaceState& shown, Conversation conversation)
    : ports_(ports),
      model_(model),
      shown_(shown),
      conversation_(std::move(conversation)),
      attention_(ports.loop, shown.breathing) {
  model_.onLayout = [this] { delivered(); };
}

EdgeState::~EdgeState() { model_.onLayout = {}; }

void EdgeState::start() {
  layout();
  if (visible()) ports_.windows.show(EdgeWindow::notch, false);
}

void EdgeState::pointerEnteredNotch() {
  if (edge_ != Edge::handle) return;
  if (!hoverStarted_) hoverStarted_ = ports_.loop.now();
  track();
}

void EdgeState::keyWindowChanged() { reconsider(); }

// What the pointer was about to bring out stays in: windows that come or go take an open menu with them.
void EdgeState::menuOpened() {
  menu_ = Menu::open;
  hoverStarted_.reset();
  pageTimer_.reset();
  agentTimer_.reset();
}

void EdgeState::menuClosed() {
  menu_ = Menu::none;
  menuClosed_ = ports_.loop.now();
  departureStarted_.reset();
  reconsider();
}

void EdgeState::screensChanged() {
  layout();
  if (live_ != Presence::closed) positionAgentWindow();
  reconsider();
}

void EdgeState::settingsChanged() { layout(); }

void EdgeState::clicked(Point place) {
  if (panel_ == Presence::closed || *shown_.showingNewSession || menu_ == Menu::open ||
      ports_.windows.hasDialog())
    return;
  const auto holds = [&](EdgeWindow window) { return frame(window) && frame(window)->contains(place); };
  const bool live = live_ != Presence::closed;
  if (holds(EdgeWindow::panel) || holds(EdgeWindow::rail) || (live && holds(EdgeWindow::agent))) return;
  hidePanel();
  clickedAway_ = ports_.loop.now();
}

void EdgeState::hoverPage(std::optional<RailPage> page) {
  pageTimer_.reset();
  if (!page) return;
  leaveRailAgent();
  if (*shown_.showingNewSession || isMenuInTheWay()) return;
  if (panel_ != Presence::closed) {
    turnTo(*page);
  } else if (ports_.preferences.boolean(OstrelSetting::openOnHover)) {
    pageTimer_ = ports_.loop.after(kPageDelay, [this, page = *page] {
      if (edge_ != Edge::rail || panel_ != Presence::closed) return;
      if (live_ == Presence::preview) closeLive();  // it stands where the panel comes
      turnTo(page);
      revealPanel(Presence::preview);
    });
  }
}

// What is below the pointer where a menu left it means nothing.
bool EdgeState::isMenuInTheWay() {
  const bool justClosed = menuClosed_ && ports_.loop.now() - *menuClosed_ < kMenuLeaves;
  if (menu_ == Menu::none && justClosed) menu_ = Menu::leftPointer;
  return menu_ != Menu::none;
}

void EdgeState::hoverRailAgent(const HerdrAgent& agent, bool inside) {
  if (!inside && hoveredAgent_ != agent.id()) return;
  leaveRailAgent();
  if (!inside) return;
  hoveredAgent_ = agent.id();
  onRailAgent_ = true;
  if (*shown_.showingNewSession || isMenuInTheWay()) return;
  // A pointer that only passes takes away no conversation that was opened.
  if (live_ == Presence::open) return;
  pageTimer_.reset();
  const bool nothingOpen = panel_ == Presence::closed && live_ == Presence::closed;
  if (nothingOpen && !ports_.preferences.boolean(OstrelSetting::openOnHover)) return;
  agentTimer_ = ports_.loop.after(kPageDelay, [this, agent] {
    if (edge_ != Edge::rail || live_ == Presence::open) return;
    // The way from the rail to the conversation must not lead over the rows of a list.
    if (panel_ == Presence::preview) hidePanel();
    openLive(agent, Presence::preview);
  });
}

// What that row previews is held by the pointer on it no longer.
void EdgeState::leaveRailAgent() {
  agentTimer_.reset();
  hoveredAgent_.reset();
  if (std::exchange(onRailAgent_, false)) reconsider();
}

void EdgeState::leaveRail() {
  if (menu_ == Menu::leftPointer) menu_ = Menu::none;
}

void EdgeState::hoverPill(bool inside) {
  pillTimer_.reset();
  if (inside) {
    shown_.pillExpanded.set(true);
  } else {
    pillTimer_ = ports_.loop.after(rail::kPillDelay, [this] { shown_.pillExpanded.set(false); });
  }
}

void EdgeState::openPage(RailPage page) {
  pageTimer_.reset();
  if (panel_ == Presence::open && *shown_.page == page) {
    hidePanel();
    return;
  }
  turnTo(page);
  revealPanel(Presence::open);
}

void EdgeState::togglePanel() {
  if (panel_ != Presence::closed) {
    hidePanel();
  } else {
    openPage(RailPage::agents);
  }
}

void EdgeState::statusItemClicked() {
  const bool closedIt = clickedAway_ && ports_.loop.now() - *clickedAway_ < kClickTells;
  clickedAway_.reset();
  if (!closedIt) togglePanel();
}

void EdgeState::presentPanel() {
  if (!visible()) toggleVisibility();
  if (panel_ != Presence::closed) {
    revealPanel(Presence::open);
  } else {
    openPage(RailPage::agents);
  }
}

void EdgeState::hoverAgent(const HerdrAgent& agent, bool inside) {
  // A row is left after the next one is entered: then it is none of the row's business any more.
  const bool anothers = hoveredAgent_ != agent.id();
  if (!inside && anothers) return;
  agentTimer_.reset();
  hoveredAgent_ = inside ? std::optional(agent.id()) : std::nullopt;
  // Somebody who types into a conversation keeps it.
  if (!inside || menu_ == Menu::open || ports_.windows.isKey(EdgeWindow::agent)) return;
  agentTimer_ = ports_.loop.after(kAgentDelay, [this, agent] {
    if (panel_ != Presence::closed && !ports_.windows.isKey(EdgeWindow::agent))
      openLive(agent, Presence::preview);
  });
}

void EdgeState::openAgent(const HerdrAgent& agent) { openLive(agent, Presence::open); }

void EdgeState::closeAgent() {
  agentTimer_.reset();
  closeLive();
  reconsider();
}

void EdgeState::resizeAgent(Size size) {
  agentSize_ = {std::max(size.width, edge::kSmallestAgentWindow.width),
                std::max(size.height, edge::kSmallestAgentWindow.height)};
  if (live_ != Presence::closed) positionAgentWindow();
}

void EdgeState::setAgentRoom(int height) {
  if (std::exchange(agentRoom_, std::max(0, height)) == std::max(0, height)) return;
  if (live_ != Presence::closed) positionAgentWindow();
}

void EdgeState::openNextAgent(bool down) {
  const auto next = model_.neighbour(liveAgent_ ? liveAgent_->id() : "", down);
  if (next) openAgent(*next);
}

void EdgeState::openNextWaiting() {
  const auto next = model_.nextWaiting(liveAgent_ ? liveAgent_->id() : "");
  if (next) openAgent(*next);
}

bool EdgeState::keyPressed(PanelKey key) {
  if (panel_ == Presence::closed || *shown_.showingNewSession) return false;
  if (key == PanelKey::close) {
    if (*shown_.page == RailPage::agents && !model_.filter()->empty()) {
      model_.setFilter({});
    } else {
      hidePanel();
    }
    return true;
  }
  if (*shown_.page != RailPage::agents) return false;
  if (key != PanelKey::open) {
    model_.moveSelection(key == PanelKey::down);
    return true;
  }
  const auto agent = model_.selectedAgent();
  if (agent) openAgent(*agent);
  return agent.has_value();
}

void EdgeState::hoverList(bool inside) { model_.freezeOrder(inside); }

void EdgeState::showNewSession(bool open) {
  if (shown_.showingNewSession.set(open)) reconsider();
}

void EdgeState::hideFor(Duration time) {
  hidePanel();
  if (visible()) toggleVisibility();
  unhideTimer_ = ports_.loop.after(time, [this] {
    if (!visible()) toggleVisibility();
  });
}

void EdgeState::offerUpdate(bool offered) {
  updateOffered_ = offered;
  layout();
}

void EdgeState::track() {
  if (following_) return;
  following_ = ports_.pointer.follow([this](Point place) {
    pointer_ = place;
    update();
  });
}

void EdgeState::stopTracking() {
  following_.reset();
  lookTimer_.reset();
  pointer_.reset();
  // What was running ends here: a delay that goes on later begins anew.
  hoverStarted_.reset();
  departureStarted_.reset();
  liveDeparture_.reset();
}

// Something other than the pointer has changed what holds the windows open.
void EdgeState::reconsider() {
  if (!needsPointer()) {
    stopTracking();
    return;
  }
  track();
  lookTimer_ = ports_.loop.after({}, [this] { update(); });
}

// A panel that was clicked stays wherever the pointer is, and the rail with it.
bool EdgeState::needsPointer() const {
  if (live_ == Presence::preview) return true;
  if (edge_ == Edge::rail) return panel_ != Presence::open;
  return edge_ == Edge::handle && hoverStarted_;
}

void EdgeState::update() {
  if (!pointer_) return;
  lookTimer_.reset();
  nextLook_.reset();
  followLivePreview();
  if (edge_ == Edge::rail) {
    followRail();
  } else if (edge_ == Edge::handle) {
    followNotch();
  }
  if (!needsPointer()) {
    stopTracking();
  } else if (nextLook_) {
    lookTimer_ = ports_.loop.after(*nextLook_ - ports_.loop.now(), [this] { update(); });
  }
}

// Whether `span` is over since `since`, which begins now where it has not begun. If not, we look again then.
bool EdgeState::passed(std::optional<TimePoint>& since, Duration span) {
  const TimePoint now = ports_.loop.now();
  if (!since) since = now;
  const TimePoint end = *since + span;
  if (now >= end) return true;
  if (!nextLook_ || end < *nextLook_) nextLook_ = end;
  return false;
}

bool EdgeState::isOver(EdgeWindow window, int dx, int dy) const {
  return pointer_ && frame(window) && frame(window)->grown(dx, dy).contains(*pointer_);
}

bool EdgeState::isOverRail() const { return edge_ == Edge::rail && isOver(EdgeWindow::rail, 6, 8); }

bool EdgeState::isOverPanel() const { return panel_ != Presence::closed && isOver(EdgeWindow::panel, 12, 8); }

void EdgeState::followNotch() {
  if (menu_ == Menu::open || !isOver(EdgeWindow::notch, 0, 0)) {
    hoverStarted_.reset();
  } else if (passed(hoverStarted_, kNotchDelay)) {
    setEdge(Edge::rail);
  }
}

void EdgeState::followLivePreview() {
  if (live_ != Presence::preview) return;
  if (ports_.windows.isKey(EdgeWindow::agent)) {
    // A click into it: from here on it is a window like any other, and its agent has been looked at.
    live_ = Presence::open;
    keepPanel();
    liveDeparture_.reset();
    if (liveAgent_) conversation_.select(*liveAgent_, true);
    return;
  }
  if (isOver(EdgeWindow::agent, 12, 8) || isOverPanel() || (onRailAgent_ && isOverRail()) ||
      menu_ == Menu::open) {
    liveDeparture_.reset();
  } else if (passed(liveDeparture_, kDeparture)) {
    closeLive();
  }
}

void EdgeState::followRail() {
  if (ports_.windows.isKey(EdgeWindow::panel)) keepPanel();
  const bool overSomething = isOverRail() || isOver(EdgeWindow::notch, 0, 0) || isOverPanel() ||
                             (live_ != Presence::closed && isOver(EdgeWindow::agent, 12, 8));
  const bool mayLeave =
      !overSomething && panel_ != Presence::open && !*shown_.showingNewSession && menu_ != Menu::open;
  if (!mayLeave) {
    departureStarted_.reset();
  } else if (passed(departureStarted_, kDeparture)) {
    if (panel_ == Presence::preview) hidePanel();
    setEdge(Edge::handle);
  }
}

}  // namespace ostrel
