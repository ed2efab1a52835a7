// The part of `EdgeState` that places, shows and hides the four windows.

#include "App/EdgeState.h"
#include "App/OstrelSetting.h"

namespace ostrel {

void EdgeState::setRailRevealed(bool reveal) {
  if (reveal == railRevealed_) return;
  railRevealed_ = reveal;
  hoverStarted_.reset();
  departureStarted_.reset();
  ports_.windows.takeClicks(EdgeWindow::rail, reveal);
  if (reveal) {
    track();
    show(EdgeWindow::rail);
  } else {
    model_.railExpanded.set(false);
    hoverPill(false);
    show(EdgeWindow::notch);
  }
  // A window must be on the screen before what it shows can move.
  turnTimer_ = ports_.loop.after({}, [this] {
    model_.railExpanded.set(railRevealed_);
    model_.notchAway.set(railRevealed_);
  });
  settleTimer_ = ports_.loop.after(motion(reveal ? kNotchLeaves : kRailLeaves),
                                   [this] { hide(railRevealed_ ? EdgeWindow::notch : EdgeWindow::rail); });
}

void EdgeState::turnTo(RailPage page) {
  model_.showingUsage.set(page.usage);
  if (!model_.selectedTab.set(page.tab)) return;
  layout();
  reconsider();
}

void EdgeState::revealPanel(bool hoverPreview) {
  layout();
  if (!frame(EdgeWindow::panel)) return;  // no screen
  panelOpenedByHover_ = hoverPreview;
  panelOutTimer_.reset();
  if (model_.isPanelVisible.set(true)) {
    const Duration length = motion(kPanelComes);
    ports_.windows.animate(
        EdgeWindow::panel,
        {.from = 0, .to = 1, .slide = length > Duration::zero() ? kPanelSlide : 0, .duration = length});
  }
  show(EdgeWindow::panel, !hoverPreview);
  reconsider();
}

void EdgeState::hidePanel() {
  agentTimer_.reset();
  if (livePreview_) closeLive();
  if (*model_.showingNewSession) return;
  pageTimer_.reset();
  panelOpenedByHover_ = false;
  model_.keyboardSelection.set(std::nullopt);
  model_.freezeOrder(false);  // the list may never hear that the pointer left it
  if (model_.isPanelVisible.set(false)) {
    const Duration length = motion(kPanelLeaves);
    ports_.windows.animate(EdgeWindow::panel, {.from = 1, .to = 0, .duration = length});
    panelOutTimer_ = ports_.loop.after(length, [this] { hide(EdgeWindow::panel); });
  }
  reconsider();
}

void EdgeState::openLive(const HerdrAgent& agent, bool preview) {
  agentTimer_.reset();
  livePreview_ = preview;
  liveDeparture_.reset();
  liveAgent_ = agent;
  conversation_.select(agent, !preview);
  if (!preview) panelOpenedByHover_ = false;
  positionAgentWindow();
  if (!frame(EdgeWindow::agent)) return;  // no screen
  show(EdgeWindow::agent, !preview);
  reconsider();
}

void EdgeState::closeLive() {
  if (agentVisible_) hide(EdgeWindow::agent);
  conversation_.stopOutput();
  liveAgent_.reset();
  livePreview_ = false;
  liveDeparture_.reset();
}

void EdgeState::toggleVisibility() {
  if (*model_.showingNewSession) {
    show(EdgeWindow::panel, true);
    return;
  }
  edgeEnabled_ = !edgeEnabled_;
  if (edgeEnabled_) {
    layout();
    show(EdgeWindow::notch);
  } else {
    setRailRevealed(false);
    hoverStarted_.reset();
    hide(EdgeWindow::rail);
    hide(EdgeWindow::notch);
    hidePanel();
  }
}

edge::Counts EdgeState::counts() const {
  const int agents = model_.agentCount();
  return {.agents = agents,
          .lights = agents,
          .selectorRows = model_.selectorRowCount() + static_cast<int>(model_.problems->size()),
          .notchLights = ports_.preferences.boolean(OstrelSetting::notchLights),
          .updateOffered = updateOffered_};
}

void EdgeState::layout() {
  const auto screen = ports_.screens.main();
  if (!screen) return;
  const edge::Counts present = counts();
  const Rect rail = edge::railFrame(*screen, present);
  const Rect panel = edge::panelFrame(*screen, rail, *model_.selectedTab, present);
  model_.selectorWidth.set(panel.width - 16);
  place(EdgeWindow::notch, edge::notchFrame(*screen, present));
  place(EdgeWindow::rail, rail);
  place(EdgeWindow::panel, panel);
}

void EdgeState::positionAgentWindow() {
  const auto screen = ports_.screens.main();
  if (!screen) return;
  if (!frame(EdgeWindow::panel)) layout();
  place(EdgeWindow::agent, edge::agentFrame(*screen, *frame(EdgeWindow::panel), agentSize_));
}

void EdgeState::place(EdgeWindow window, const Rect& rect) {
  if (frame(window) == rect) return;
  frame(window) = rect;
  ports_.windows.place(window, rect);
}

void EdgeState::show(EdgeWindow window, bool key) {
  if (window == EdgeWindow::agent) agentVisible_ = true;
  ports_.windows.show(window, key);
}

void EdgeState::hide(EdgeWindow window) {
  if (window == EdgeWindow::agent) agentVisible_ = false;
  ports_.windows.hide(window);
}

Duration EdgeState::motion(Duration length) const {
  return ports_.windows.reducedMotion() ? Duration::zero() : length;
}

}  // namespace ostrel
