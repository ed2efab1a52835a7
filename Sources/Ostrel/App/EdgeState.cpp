#include "App/EdgeState.h"

#include <algorithm>
#include <utility>

#include "App/OstrelSetting.h"

namespace ostrel {

// Following the pointer, and what the views and the desktop ask for. The windows themselves:
// EdgeWindowSteps.cpp.

EdgeState::EdgeState(Ports ports, OstrelModel& model, Conversation conversation)
    : ports_(ports),
      model_(model),
      conversation_(std::move(conversation)),
      newSession_(model.showingNewSession.observe([this] { reconsider(); })) {
  model_.onLayout = [this] { layout(); };
}

EdgeState::~EdgeState() { model_.onLayout = {}; }

void EdgeState::start() {
  layout();
  if (edgeEnabled_) show(EdgeWindow::notch);
}

void EdgeState::pointerEnteredNotch() {
  if (!edgeEnabled_ || railRevealed_) return;
  if (!hoverStarted_) hoverStarted_ = ports_.loop.now();
  track();
}

void EdgeState::keyWindowChanged() { reconsider(); }

// What the pointer was about to bring out stays in: windows that come or go take an open menu with them.
void EdgeState::menuOpened() {
  menuTracking_ = true;
  hoverStarted_.reset();
  pageTimer_.reset();
  agentTimer_.reset();
}

void EdgeState::menuClosed() {
  menuTracking_ = false;
  menuClosed_ = ports_.loop.now();
  departureStarted_.reset();
  reconsider();
}

void EdgeState::screensChanged() {
  layout();
  if (agentVisible_) positionAgentWindow();
  reconsider();
}

void EdgeState::settingsChanged() { layout(); }

void EdgeState::clicked(Point place) {
  if (!*model_.isPanelVisible || *model_.showingNewSession || menuTracking_ || ports_.windows.hasDialog())
    return;
  const auto holds = [&](EdgeWindow window) { return frame(window) && frame(window)->contains(place); };
  if (holds(EdgeWindow::panel) || holds(EdgeWindow::rail) || (agentVisible_ && holds(EdgeWindow::agent)))
    return;
  hidePanel();
}

void EdgeState::hoverPage(std::optional<RailPage> page) {
  pageTimer_.reset();
  if (!page || *model_.showingNewSession || menuTracking_) return;
  if (menuClosed_ && ports_.loop.now() - *menuClosed_ < kMenuLeaves) leftByMenu_ = true;
  if (leftByMenu_) return;
  if (*model_.isPanelVisible) {
    turnTo(*page);
  } else if (ports_.preferences.boolean(OstrelSetting::openOnHover)) {
    pageTimer_ = ports_.loop.after(kPageDelay, [this, page = *page] {
      if (!railRevealed_ || *model_.isPanelVisible) return;
      turnTo(page);
      revealPanel(true);
    });
  }
}

void EdgeState::leaveRail() { leftByMenu_ = false; }

void EdgeState::hoverPill(bool inside) {
  pillTimer_.reset();
  if (inside) {
    model_.pillExpanded.set(true);
  } else {
    pillTimer_ = ports_.loop.after(rail::kPillDelay, [this] { model_.pillExpanded.set(false); });
  }
}

void EdgeState::openPage(RailPage page) {
  pageTimer_.reset();
  const bool same = *model_.selectedTab == page.tab && *model_.showingUsage == page.usage;
  if (*model_.isPanelVisible && !panelOpenedByHover_ && same) {
    hidePanel();
    return;
  }
  turnTo(page);
  revealPanel(false);
}

void EdgeState::togglePanel() {
  if (*model_.isPanelVisible) {
    hidePanel();
  } else {
    openPage(RailPage::agents);
  }
}

void EdgeState::presentPanel() {
  if (!edgeEnabled_) toggleVisibility();
  if (*model_.isPanelVisible) {
    revealPanel(false);
  } else {
    openPage(RailPage::agents);
  }
}

void EdgeState::hoverAgent(const HerdrAgent& agent, bool inside) {
  // A row is left after the next one is entered: then it is none of the row's business any more.
  if (!inside && hoveredAgent_ != agent.id()) return;
  agentTimer_.reset();
  hoveredAgent_ = inside ? std::optional(agent.id()) : std::nullopt;
  // Somebody who types into a conversation keeps it.
  if (!inside || menuTracking_ || ports_.windows.isKey(EdgeWindow::agent)) return;
  agentTimer_ = ports_.loop.after(kAgentDelay, [this, agent] {
    if (*model_.isPanelVisible && !ports_.windows.isKey(EdgeWindow::agent)) openLive(agent, true);
  });
}

void EdgeState::openAgent(const HerdrAgent& agent) { openLive(agent, false); }

void EdgeState::closeAgent() {
  agentTimer_.reset();
  closeLive();
  reconsider();
}

void EdgeState::resizeAgent(Size size) {
  agentSize_ = {std::max(size.width, edge::kSmallestAgentWindow.width),
                std::max(size.height, edge::kSmallestAgentWindow.height)};
  if (agentVisible_) positionAgentWindow();
}

bool EdgeState::keyPressed(PanelKey key) {
  if (!*model_.isPanelVisible || *model_.showingNewSession) return false;
  if (key == PanelKey::close) {
    hidePanel();
    return true;
  }
  if (*model_.selectedTab != PanelTab::agents || *model_.showingUsage) return false;
  if (key != PanelKey::open) {
    model_.moveSelection(key == PanelKey::down);
    return true;
  }
  const auto agent = model_.selectedAgent();
  if (agent) openAgent(*agent);
  return agent.has_value();
}

void EdgeState::hoverList(bool inside) { model_.freezeOrder(inside); }

void EdgeState::hideFor(Duration time) {
  hidePanel();
  if (edgeEnabled_) toggleVisibility();
  unhideTimer_ = ports_.loop.after(time, [this] {
    if (!edgeEnabled_) toggleVisibility();
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
  if (livePreview_) return true;
  if (!edgeEnabled_) return false;
  return railRevealed_ ? !*model_.isPanelVisible || panelOpenedByHover_ : hoverStarted_.has_value();
}

void EdgeState::update() {
  if (!pointer_) return;
  lookTimer_.reset();
  nextLook_.reset();
  followLivePreview();
  if (edgeEnabled_ && railRevealed_) {
    followRail();
  } else if (edgeEnabled_) {
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

void EdgeState::followNotch() {
  if (menuTracking_ || !isOver(EdgeWindow::notch, 0, 0)) {
    hoverStarted_.reset();
  } else if (passed(hoverStarted_, kNotchDelay)) {
    setRailRevealed(true);
  }
}

void EdgeState::followLivePreview() {
  if (!livePreview_) return;
  if (ports_.windows.isKey(EdgeWindow::agent)) {
    // A click into it: from here on it is a window like any other, and its agent has been looked at.
    livePreview_ = false;
    panelOpenedByHover_ = false;
    liveDeparture_.reset();
    if (liveAgent_) conversation_.select(*liveAgent_, true);
    return;
  }
  if (isOver(EdgeWindow::agent, 12, 8) || isOver(EdgeWindow::panel, 12, 8) || menuTracking_) {
    liveDeparture_.reset();
  } else if (passed(liveDeparture_, kDeparture)) {
    closeLive();
  }
}

void EdgeState::followRail() {
  const bool panelVisible = *model_.isPanelVisible;
  if (panelOpenedByHover_ && ports_.windows.isKey(EdgeWindow::panel)) panelOpenedByHover_ = false;
  const bool overSomething = isOver(EdgeWindow::rail, 6, 8) || isOver(EdgeWindow::notch, 0, 0) ||
                             (panelVisible && isOver(EdgeWindow::panel, 12, 8)) ||
                             (agentVisible_ && isOver(EdgeWindow::agent, 12, 8));
  const bool mayLeave = !overSomething && (!panelVisible || panelOpenedByHover_) &&
                        !*model_.showingNewSession && !menuTracking_;
  if (!mayLeave) {
    departureStarted_.reset();
  } else if (passed(departureStarted_, kDeparture)) {
    if (panelOpenedByHover_) hidePanel();
    setRailRevealed(false);
  }
}

}  // namespace ostrel
