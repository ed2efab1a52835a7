// The part of `EdgeState` that places, shows and hides the four windows.

#include <set>
#include <string>
#include <utility>

#include "App/EdgeState.h"
#include "App/OstrelSetting.h"

namespace ostrel {

void EdgeState::setEdge(Edge edge) {
  const bool was = railRevealed();
  edge_ = edge;
  if (railRevealed() != was) moveRail();
}

// The rail comes out, or goes.
void EdgeState::moveRail() {
  const bool reveal = railRevealed();
  hoverStarted_.reset();
  departureStarted_.reset();
  ports_.windows.takeClicks(EdgeWindow::rail, reveal);
  if (reveal) {
    track();
    ports_.windows.show(EdgeWindow::rail, false);
  } else {
    shown_.railExpanded.set(false);
    leaveRailAgent();
    hoverPill(false);
    ports_.windows.show(EdgeWindow::notch, false);
  }
  // A window must be on the screen before what it shows can move.
  turnTimer_ = ports_.loop.after({}, [this] {
    shown_.railExpanded.set(railRevealed());
    shown_.notchAway.set(railRevealed());
  });
  settleTimer_ = ports_.loop.after(motion(reveal ? kNotchLeaves : kRailLeaves), [this] {
    ports_.windows.hide(railRevealed() ? EdgeWindow::notch : EdgeWindow::rail);
  });
}

void EdgeState::turnTo(RailPage page) {
  if (!shown_.page.set(page)) return;
  layout();
  reconsider();
}

// True when the panel came or went.
bool EdgeState::setPanel(Presence presence) {
  panel_ = presence;
  return shown_.isPanelVisible.set(presence != Presence::closed);
}

// A click: it stays from here on.
void EdgeState::keepPanel() {
  if (panel_ == Presence::preview) panel_ = Presence::open;
}

void EdgeState::revealPanel(Presence presence) {
  layout();
  if (!frame(EdgeWindow::panel)) return;  // no screen
  panelOutTimer_.reset();
  if (setPanel(presence)) {
    if (live_ != Presence::closed) positionAgentWindow();  // it may stand where the panel comes
    const Duration length = motion(kPanelComes);
    ports_.windows.animate(
        EdgeWindow::panel,
        {.from = 0, .to = 1, .slide = length > Duration::zero() ? kPanelSlide : 0, .duration = length});
  }
  ports_.windows.show(EdgeWindow::panel, presence == Presence::open);
  reconsider();
}

void EdgeState::hidePanel() {
  agentTimer_.reset();
  if (live_ == Presence::preview) closeLive();
  if (*shown_.showingNewSession) return;
  pageTimer_.reset();
  model_.clearSelection();
  model_.setFilter({});
  model_.freezeOrder(false);  // the list may never hear that the pointer left it
  if (setPanel(Presence::closed)) {
    const Duration length = motion(kPanelLeaves);
    ports_.windows.animate(EdgeWindow::panel, {.from = 1, .to = 0, .duration = length});
    panelOutTimer_ = ports_.loop.after(length, [this] { ports_.windows.hide(EdgeWindow::panel); });
  }
  reconsider();
}

void EdgeState::openLive(const HerdrAgent& agent, Presence presence) {
  agentTimer_.reset();
  positionAgentWindow();
  if (!frame(EdgeWindow::agent)) return;  // no screen
  live_ = presence;
  liveDeparture_.reset();
  liveAgent_ = agent;
  shown_.openAgent.set(agent.id());
  conversation_.select(agent, presence == Presence::open);
  if (presence == Presence::open) keepPanel();
  ports_.windows.show(EdgeWindow::agent, presence == Presence::open);
  reconsider();
}

void EdgeState::closeLive() {
  if (live_ != Presence::closed) ports_.windows.hide(EdgeWindow::agent);
  live_ = Presence::closed;
  conversation_.stopOutput();
  liveAgent_.reset();
  shown_.openAgent.set(std::nullopt);
  liveDeparture_.reset();
}

void EdgeState::toggleVisibility() {
  if (*shown_.showingNewSession) {
    ports_.windows.show(EdgeWindow::panel, true);
    return;
  }
  if (!visible()) {
    setEdge(Edge::handle);
    layout();
    ports_.windows.show(EdgeWindow::notch, false);
  } else {
    setEdge(Edge::hidden);
    hoverStarted_.reset();
    ports_.windows.hide(EdgeWindow::rail);
    ports_.windows.hide(EdgeWindow::notch);
    hidePanel();
  }
}

edge::Counts EdgeState::counts() const {
  const int agents = model_.agentCount();
  return {.agents = agents,
          .lights = agents,
          .selectorRows = model_.selectorRowCount() + static_cast<int>(model_.problems()->size()),
          .notchLights = ports_.preferences.boolean(OstrelSetting::notchLights),
          .updateOffered = updateOffered_};
}

void EdgeState::delivered() {
  layout();
  std::set<std::string> waiting;
  for (const LitAgent& lit : model_.railAgents()) {
    if (lit.light != AgentLight::needsYou) break;  // they come first
    waiting.insert(lit.id());
  }
  attention_.follow(std::move(waiting));
}

void EdgeState::layout() {
  const auto screen = ports_.screens.main();
  if (!screen) return;
  const edge::Counts present = counts();
  const Rect rail = edge::railFrame(*screen, present);
  const Rect panel = edge::panelFrame(*screen, rail, shown_.page->tab, present);
  shown_.selectorWidth.set(panel.width - 16);
  place(EdgeWindow::notch, edge::notchFrame(*screen, present));
  place(EdgeWindow::rail, rail);
  place(EdgeWindow::panel, panel);
}

void EdgeState::positionAgentWindow() {
  const auto screen = ports_.screens.main();
  if (!screen) return;
  if (!frame(EdgeWindow::panel)) layout();
  // One that is on the screen stays where it is, unless the panel comes there.
  if (panel_ != Presence::closed) {
    besidePanel_ = true;
  } else if (live_ == Presence::closed) {
    besidePanel_ = false;
  }
  Rect beside = *frame(EdgeWindow::panel);
  if (!besidePanel_) beside = {beside.right(), beside.y, 0, beside.height};
  const Size size{agentSize_.width, agentSize_.height + agentRoom_};
  place(EdgeWindow::agent, edge::agentFrame(*screen, beside, size));
}

void EdgeState::place(EdgeWindow window, const Rect& rect) {
  if (frame(window) == rect) return;
  frame(window) = rect;
  ports_.windows.place(window, rect);
}

Duration EdgeState::motion(Duration length) const {
  return ports_.windows.reducedMotion() ? Duration::zero() : length;
}

}  // namespace ostrel
