#include <gtest/gtest.h>

#include "App/EdgeState.h"
#include "App/OstrelSetting.h"
#include "Support/FakeAgents.h"
#include "Support/FakeDesktop.h"
#include "Support/MemoryPreferences.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;
using enum EdgeWindow;

class EdgeStateTest : public testing::Test {
 protected:
  EdgeStateTest() {
    preferences_.registerDefaults(OstrelSetting::defaults());
    agents_.agents = {agent_};
    agents_.lights = {{"a", AgentLight::idle}};
    edge_.start();
  }
  // The windows that are there then, by their first letters; the one with the keyboard in upper case.
  std::string shownAfter(Duration time) {
    loop_.runFor(time);
    std::string text;
    for (const auto& [window, is] : desktop_.shown) {
      if (is) text += (desktop_.isKey(window) ? "NRPA" : "nrpa")[static_cast<int>(window)];
    }
    return text;
  }
  std::string at(Point place, Duration time) {
    desktop_.pointer = place;
    if (desktop_.shown[notch] && desktop_.frames[notch].contains(place)) edge_.pointerEnteredNotch();
    desktop_.report();
    return shownAfter(time);
  }
  std::string in(EdgeWindow window, Duration time) {
    const Rect frame = desktop_.frames[window];
    return at({frame.x + frame.width / 2, frame.middleY()}, time);
  }
  std::string previewPage() {
    in(notch, 300ms);
    edge_.hoverPage(RailPage::agents);
    return shownAfter(90ms);
  }
  std::string clickInto(EdgeWindow window) {
    in(window, 0ms);
    desktop_.key = window;
    edge_.keyWindowChanged();
    edge_.clicked(desktop_.pointer);
    return at(kAway, 10s);
  }
  static constexpr Point kAway{300, 850};
  VirtualLoop loop_;
  MemoryPreferences preferences_;
  FakeAgents agents_;
  OstrelModel model_{agents_};
  FakeDesktop desktop_;
  HerdrAgent agent_ = agentOf("a");
  std::string conversation_;
  InterfaceState shown_;
  EdgeState edge_{{loop_, desktop_, desktop_, desktop_, preferences_},
                  model_,
                  shown_,
                  {[this](const HerdrAgent&, bool seen) { conversation_ += seen ? "seen " : "shown "; },
                   [this] { conversation_ += "stopped "; }}};
};

TEST_F(EdgeStateTest, TheRailComesAfterAMomentInTheHandleAndLeavesAfterLonger) {
  in(notch, 59ms);
  EXPECT_EQ(at(kAway, 1s), "n") << "only passed through";
  EXPECT_FALSE(desktop_.moved || loop_.nextTimer()) << "nothing runs at rest";
  EXPECT_EQ(in(notch, 60ms), "nr");
  EXPECT_TRUE(*shown_.railExpanded && *shown_.notchAway);
  EXPECT_EQ(shownAfter(240ms), "r");
  at(kAway, 299ms);
  EXPECT_EQ(in(rail, 10s), "r") << "it came back in time";
  EXPECT_EQ(at(kAway, 300ms), "nr");
  EXPECT_FALSE(*shown_.railExpanded || *shown_.notchAway);
  EXPECT_EQ(in(notch, 1s), "r") << "the reversal cancelled what the leaving had planned";
}

TEST_F(EdgeStateTest, AHoveredPageIsAPreviewUntilItIsClicked) {
  EXPECT_EQ(previewPage(), "rp");
  EXPECT_EQ(desktop_.lastMotion, (WindowMotion{.from = 0, .to = 1, .slide = 14, .duration = 160ms}));
  edge_.hoverPage(RailPage{PanelTab::notes});
  EXPECT_EQ(desktop_.frames[panel].height, 476) << "an open panel follows at once";
  EXPECT_EQ(at(kAway, 440ms), "n");
  previewPage();
  edge_.openPage(RailPage::agents);
  EXPECT_EQ(at(kAway, 10s), "rP") << "a click on the page that hovering brought keeps it";
  edge_.openPage(RailPage::agents);
  EXPECT_EQ(at(kAway, 1s), "n");
  previewPage();
  EXPECT_EQ(clickInto(panel), "rP");
  EXPECT_FALSE(desktop_.moved) << "where the pointer is makes no difference any more";
  edge_.openPage(RailPage::agents);
  EXPECT_FALSE(*shown_.isPanelVisible);
  loop_.runFor(99ms);
  edge_.openPage(RailPage::agents);
  EXPECT_EQ(shownAfter(1s), "rP") << "the end of a fading does not take away what came back";
  edge_.clicked(kAway);
  EXPECT_EQ(at(kAway, 1s), "n");
  preferences_.set(OstrelSetting::openOnHover, false);
  EXPECT_EQ(previewPage(), "r");
}

TEST_F(EdgeStateTest, AConversationPreviewSurvivesTheGapAndAClickKeepsIt) {
  for (const bool click : {false, true}) {
    previewPage();
    edge_.hoverAgent(agent_, true);
    EXPECT_EQ(shownAfter(60ms), "rpa");
    const Rect frame = desktop_.frames[EdgeWindow::agent];
    EXPECT_EQ(frame.right(), desktop_.frames[panel].x);
    EXPECT_EQ(at({frame.x - 12, frame.y - 8}, 10s), "rpa");
    if (!click) EXPECT_EQ(at({frame.x - 13, frame.y}, 1s), "n");
  }
  EXPECT_EQ(clickInto(EdgeWindow::agent), "rpA");
  edge_.hoverAgent(agent_, true);
  EXPECT_EQ(shownAfter(1s), "rpA");
  EXPECT_EQ(conversation_, "shown stopped shown seen ") << "somebody types there";
}

TEST_F(EdgeStateTest, MenusSheetsAndDialogsKeepEverythingOpen) {
  previewPage();
  edge_.menuOpened();
  edge_.clicked(kAway);
  EXPECT_EQ(at(kAway, 10s), "rp");
  edge_.showNewSession(true);
  edge_.menuClosed();
  edge_.clicked(kAway);
  edge_.toggleVisibility();
  EXPECT_EQ(shownAfter(10s), "rP");
  desktop_.dialog = true;
  edge_.showNewSession(false);
  edge_.clicked(kAway);
  EXPECT_EQ(shownAfter(10s), "rP");
}

TEST_F(EdgeStateTest, AMenuKeepsWhatWasChosenAndNothingComesBelowIt) {
  in(notch, 300ms);
  in(rail, 0ms);
  edge_.menuOpened();
  edge_.hoverPage(RailPage::agents);
  EXPECT_EQ(shownAfter(1s), "r");
  edge_.menuClosed();
  edge_.openPage({PanelTab::connections, false});
  for (const Duration later :
       std::initializer_list<Duration>{10ms, 5s}) {  // as it goes, and as the pointer wanders from row to row
    loop_.runFor(later);
    edge_.hoverPage(RailPage::agents);
    EXPECT_EQ(shown_.page->tab, PanelTab::connections) << "the pointer was left there by the menu";
  }
  edge_.leaveRail();
  edge_.hoverPage(RailPage::agents);
  EXPECT_EQ(shown_.page->tab, PanelTab::agents) << "it came back";

  edge_.hidePanel();
  EXPECT_EQ(at(kAway, 1s), "n");
  in(notch, 30ms);
  edge_.menuOpened();
  EXPECT_EQ(shownAfter(10s), "n") << "a menu over the handle";
  edge_.menuClosed();
  EXPECT_EQ(in(notch, 60ms), "nr");
}

TEST_F(EdgeStateTest, TheLeaveOfTheRowBeforeEndsNothing) {
  const HerdrAgent other = agentOf("b");
  previewPage();
  edge_.hoverAgent(agent_, true);
  edge_.hoverAgent(other, true);
  edge_.hoverAgent(agent_, false);
  EXPECT_EQ(shownAfter(60ms), "rpa");
  edge_.hoverAgent(agent_, true);
  edge_.hoverAgent(other, false);
  edge_.hoverAgent(agent_, false);
  shownAfter(1s);
  EXPECT_EQ(conversation_, "shown stopped ") << "one preview, which went: the second row was left in time";
}

TEST_F(EdgeStateTest, WhoeverTypesAgainBeforeAPreviewComesKeepsTheConversation) {
  previewPage();
  edge_.openAgent(agent_);
  desktop_.key = panel;
  edge_.hoverAgent(agentOf("b"), true);
  loop_.runFor(30ms);
  desktop_.key = EdgeWindow::agent;
  EXPECT_EQ(shownAfter(1s), "rpA");
  EXPECT_EQ(conversation_, "seen ");
}

TEST_F(EdgeStateTest, AListThatClosedBelowThePointerIsInOrderWhenItComesAgain) {
  agents_.agents = {agent_, agentOf("b")};
  agents_.lights = {{"a", AgentLight::idle}, {"b", AgentLight::idle}};
  previewPage();
  edge_.hoverList(true);
  agents_.lights["b"] = AgentLight::needsYou;
  EXPECT_EQ(model_.agentGroups().front().agents.front().agent(), agent_) << "nothing moves below the pointer";
  edge_.hidePanel();
  EXPECT_EQ(model_.agentGroups().front().agents.front().agent().paneID, "b");
}

TEST_F(EdgeStateTest, ARowOfTheRailPreviewsItsOwnAgent) {
  const HerdrAgent other = agentOf("b");
  in(notch, 300ms);
  in(rail, 0ms);
  edge_.hoverRailAgent(agent_, true);
  EXPECT_EQ(shownAfter(89ms), "r");
  edge_.hoverRailAgent(other, true);
  edge_.hoverRailAgent(agent_, false);
  EXPECT_EQ(shownAfter(90ms), "ra");
  EXPECT_TRUE(edge_.showsAgent(other.id()) && !edge_.showsAgent(agent_.id()));
  const Rect alone = desktop_.frames[EdgeWindow::agent];
  EXPECT_LE(alone.right(), desktop_.frames[rail].x);
  EXPECT_GE(alone.right(), desktop_.frames[rail].x - 12) << "no gap in which the preview goes";
  EXPECT_EQ(shownAfter(10s), "ra") << "as long as the pointer rests on the row";
  EXPECT_EQ(at({alone.right() - 20, alone.middleY()}, 10s), "ra");
  edge_.hoverRailAgent(other, false);
  EXPECT_EQ(at({alone.x - 13, alone.middleY()}, 1s), "n");
  EXPECT_EQ(conversation_, "shown stopped ") << "nobody has looked at it for good";

  EXPECT_EQ(previewPage(), "rp");
  edge_.hoverPage(std::nullopt);
  edge_.hoverRailAgent(agent_, true);
  EXPECT_EQ(in(rail, 1s), "ra") << "the way to the conversation leads over no list";
  EXPECT_EQ(desktop_.frames[EdgeWindow::agent], alone);
  edge_.hoverRailAgent(other, true);
  edge_.hoverPage(RailPage::agents);
  EXPECT_EQ(shownAfter(90ms), "rp") << "on to the list, and neither agent's conversation comes late";
  EXPECT_EQ(shownAfter(1s), "rp");
  edge_.hidePanel();
  edge_.openAgent(agent_);
  edge_.hoverRailAgent(other, true);
  EXPECT_EQ(shownAfter(1s), "rA");
  EXPECT_TRUE(edge_.showsAgent(agent_.id())) << "a pointer that passes takes away none that was opened";
  edge_.openPage(RailPage::agents);
  EXPECT_EQ(desktop_.frames[EdgeWindow::agent].right(), desktop_.frames[panel].x) << "it makes room";
  edge_.closeAgent();
  edge_.hidePanel();
  EXPECT_EQ(at(kAway, 1s), "n");

  preferences_.set(OstrelSetting::openOnHover, false);
  in(notch, 300ms);
  in(rail, 0ms);
  edge_.hoverRailAgent(agent_, true);
  EXPECT_EQ(shownAfter(1s), "r");
}

TEST_F(EdgeStateTest, LightsBreatheForAWhileAfterAnotherAgentBeganToWait) {
  agents_.agents.push_back(agentOf("b"));
  const auto breathes = [&](AgentLight a, AgentLight b) {
    agents_.lights = {{"a", a}, {"b", b}};
    agents_.changes.notify();
    return *shown_.breathing;
  };
  using enum AgentLight;
  EXPECT_FALSE(breathes(working, done));
  EXPECT_TRUE(breathes(needsYou, done));
  loop_.runFor(15s);
  EXPECT_TRUE(breathes(needsYou, needsYou)) << "another";
  loop_.runFor(19s);
  EXPECT_TRUE(breathes(needsYou, needsYou)) << "no news";
  loop_.runFor(1s);
  EXPECT_FALSE(*shown_.breathing) << "it stands, though they wait";
  EXPECT_FALSE(breathes(needsYou, working)) << "one less is no news";
  EXPECT_TRUE(breathes(needsYou, needsYou)) << "it began again";
  EXPECT_FALSE(breathes(idle, working)) << "nobody waits";
  EXPECT_FALSE(loop_.nextTimer());
}

TEST_F(EdgeStateTest, HidingScreensAndReducedMotion) {
  desktop_.reduced = true;
  previewPage();
  edge_.openAgent(agent_);
  EXPECT_EQ(desktop_.lastMotion, WindowMotion{});
  desktop_.screen.reset();
  edge_.screensChanged();
  desktop_.screen = Screen{{1920, 0, 800, 600}, {1920, 30, 800, 570}};  // beside another, a bar at its top
  edge_.screensChanged();
  EXPECT_EQ(desktop_.frames[panel].right(), 2658);
  EXPECT_EQ(desktop_.frames[EdgeWindow::agent].x, 1928) << "covers the panel rather than leave the screen";
  EXPECT_GE(desktop_.frames[EdgeWindow::agent].y, 38);
  edge_.closeAgent();
  edge_.hideFor(2h);
  edge_.togglePanel();
  EXPECT_EQ(shownAfter(1h), "P") << "the shortcut still works";
  edge_.keyPressed(PanelKey::close);
  EXPECT_EQ(shownAfter(1h), "n");
  edge_.hideFor(2h);
  for (const Duration later : std::initializer_list<Duration>{1s, 3h}) {
    edge_.presentPanel();
    EXPECT_TRUE(shownAfter(later).ends_with('P')) << "started again by somebody who looks for it";
    EXPECT_TRUE(edge_.visible());
  }
}

TEST_F(EdgeStateTest, AConversationGrowsForACardAndGoesBack) {
  edge_.openAgent(agent_);
  const Rect before = desktop_.frames[agent];
  edge_.setAgentRoom(150);
  EXPECT_EQ(desktop_.frames[agent].height, before.height + 150);
  EXPECT_EQ(desktop_.frames[agent].right(), before.right());
  edge_.resizeAgent({before.width, before.height + 10});
  EXPECT_EQ(desktop_.frames[agent].height, before.height + 160) << "its own size is another matter";
  edge_.setAgentRoom(10'000);
  const Rect& all = desktop_.screen->visible;
  EXPECT_TRUE(desktop_.frames[agent].y >= all.y && desktop_.frames[agent].bottom() <= all.bottom());
  edge_.resizeAgent({before.width, before.height});
  edge_.setAgentRoom(0);
  EXPECT_EQ(desktop_.frames[agent], before);
}

TEST_F(EdgeStateTest, WithoutAScreenNoConversationIsFollowed) {
  previewPage();
  desktop_.screen.reset();
  edge_.hoverAgent(agent_, true);
  EXPECT_EQ(shownAfter(60ms), "rp");
  edge_.openAgent(agent_);
  EXPECT_EQ(conversation_, "") << "nobody would see it";
  EXPECT_EQ(at(kAway, 1s), "n") << "and the preview of the list goes as ever";
}

TEST_F(EdgeStateTest, EscapeClearsTheFilterFirstAndASecondClickOnTheStatusItemCloses) {
  edge_.statusItemClicked();
  EXPECT_EQ(shownAfter(1s), "nP");
  model_.setFilter({"x", {}});
  EXPECT_TRUE(edge_.keyPressed(PanelKey::close));
  EXPECT_TRUE(model_.filter()->empty());
  EXPECT_EQ(shownAfter(1s), "nP");
  edge_.keyPressed(PanelKey::close);
  EXPECT_EQ(shownAfter(1s), "n");

  // The press is a click outside, the release a click on the item.
  edge_.statusItemClicked();
  model_.setFilter({"x", {}});
  shownAfter(1s);
  edge_.clicked(kAway);
  shownAfter(200ms);
  edge_.statusItemClicked();
  EXPECT_EQ(shownAfter(1s), "n");
  EXPECT_TRUE(model_.filter()->empty()) << "the next time everybody is there";
  edge_.statusItemClicked();
  EXPECT_EQ(shownAfter(1s), "nP");
  edge_.clicked(kAway);
  shownAfter(1s);
  edge_.statusItemClicked();
  EXPECT_EQ(shownAfter(1s), "nP") << "a click of its own, later";

  edge_.openAgent(agent_);
  EXPECT_EQ(*shown_.openAgent, agent_.id());
  edge_.closeAgent();
  EXPECT_FALSE(*shown_.openAgent);
}

edge::Counts countsOf(int agents) { return {.agents = agents, .lights = agents, .selectorRows = agents}; }

TEST(EdgeGeometry, ASmallScreenKeepsEverythingOnIt) {
  const Screen small = {{0, 0, 400, 300}, {0, 0, 400, 300}};
  const int rows = edge::railRows(small, countsOf(40));
  EXPECT_LE(edge::railCollapsedHeight(rows, countsOf(40)), 300);
  EXPECT_GT(edge::railCollapsedHeight(rows + 1, countsOf(40)), 300);
  const Screen large = {{0, 0, 3840, 2160}, {0, 0, 3840, 2160}};
  EXPECT_EQ(edge::railRows(large, countsOf(61)), 12) << "more than anybody reads";
  EXPECT_EQ(edge::railRows(large, countsOf(11)), 11);
  const Rect panel = edge::panelFrame(small, edge::railFrame(small, {}), PanelTab::machines, {});
  EXPECT_EQ(panel, (Rect{8, 8, 384, 284}));
  EXPECT_EQ(edge::agentFrame(small, panel, edge::kAgentWindowSize), panel);
}

TEST(EdgeGeometry, TheListTakesAllTheHeightThereIsBeforeItScrolls) {
  const Screen screen = {{0, 0, 1600, 1200}, {0, 30, 1600, 1170}};
  const auto height = [&](int agents) {
    const Rect panel = edge::panelFrame(screen, edge::railFrame(screen, countsOf(agents)), PanelTab::agents,
                                        countsOf(agents));
    EXPECT_GE(panel.y, screen.visible.y + 8);
    EXPECT_LE(panel.bottom(), screen.visible.bottom() - 8);
    return panel.height;
  };
  EXPECT_EQ(height(15), 15 * 54 + 148);
  EXPECT_EQ(height(61), 1170 - 16);
}

TEST(EdgeGeometry, TheHandleShowsTheMostUrgentLightsAndCountsTheOthers) {
  using enum AgentLight;
  std::vector<AgentLight> all(33, done);
  all.push_back(needsYou);
  all[12] = working;
  const edge::NotchLights some = edge::notchLights(all);
  EXPECT_EQ(some.shown, (std::vector{needsYou, working, done, done, done}));
  EXPECT_EQ(some.more, 29);
  EXPECT_EQ(edge::notchLights({idle, needsYou}).shown, (std::vector{needsYou, idle}));
  EXPECT_EQ(edge::notchLights(std::vector(5, idle)).more, 0);
  const Screen screen = {{0, 0, 1600, 900}, {0, 0, 1600, 900}};
  EXPECT_EQ(edge::notchFrame(screen, countsOf(6)).height,
            edge::notchFrame(screen, countsOf(5)).height + edge::kNotchMoreHeight);
}

}  // namespace
}  // namespace ostrel
