#include <algorithm>
#include <cstring>

#include <gtest/gtest.h>

#include "App/AgentAlerts.h"
#include "App/DoubleOptionShortcut.h"
#include "App/OstrelSetting.h"
#include "Support/FakeAgents.h"
#include "Support/MemoryPreferences.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::literals;
using Texts = std::vector<std::string>;

// The desktop: banners, sounds, keys.
struct FakeDesktop final : Notifications, SoundPlayer, ModifierKeys {
  void post(const Banner& banner) override {
    banners += banner.agent + "|" + banner.title + "|" + banner.body + "\n";
  }
  void onClick(Clicked function) override { clicked = std::move(function); }
  void requestPermission() override {}
  void play(const std::string& wave) override { played.push_back(wave); }
  Registration observe(Changed function) override {
    keysChanged = std::move(function);
    return {};
  }
  std::string banners;
  Clicked clicked;
  Texts played;
  Changed keysChanged;
};

class AgentAlertsTest : public testing::Test {
 protected:
  AgentAlertsTest() { preferences_.registerDefaults(OstrelSetting::defaults()); }
  // Each agent is its pane and the first letter of its light. W: working, as the agent itself says. Returns
  // the banners.
  std::string update(const Texts& agents, bool complete = true) {
    LitList list;
    list.complete = complete;
    for (const std::string& text : agents) {
      const auto light = std::string_view("nwdi").find(text.back() == 'W' ? 'w' : text.back());
      HerdrAgent agent = agentOf(text.substr(0, 1));
      agent.state = text.back() == 'W' ? AgentState::working : AgentState::idle;
      list.agents.push_back({std::make_shared<ListedAgent>(std::move(agent)), AgentLight(light)});
    }
    alerts_.update(list);
    return std::exchange(desktop_.banners, {});
  }
  VirtualLoop loop_;
  MemoryPreferences preferences_;
  FakeDesktop desktop_;
  AgentSounds sounds_{loop_, desktop_, 1};
  std::string opened_;
  AgentAlerts alerts_{{preferences_, sounds_, &desktop_},
                      [this](const HerdrAgent& agent) { opened_ += agent.paneID; }};
};

TEST_F(AgentAlertsTest, OnlyTheTurnToNeedingTheUserAlerts) {
  EXPECT_EQ(update({"an"}), "") << "it waited at the launch";
  EXPECT_EQ(update({"an", "bn"}), "1:sb|Agent b needs you|Waiting for your answer.\n");
  EXPECT_EQ(desktop_.played.back(), AgentSounds::wave(AgentSounds::Kind::needsYou, 2));
  update({"aw", "bn"});
  preferences_.set("agentTitle.1:sa", "Mine");
  EXPECT_EQ(update({"an", "bn"}), "1:sa|Mine needs you|Waiting for your answer.\n");
  desktop_.clicked("1:sb");
  desktop_.clicked("1:sgone");
  EXPECT_EQ(opened_, "b");
}

// At the launch sources tell one after the other what has been there all along; so does Herdr when it is
// joined.
TEST_F(AgentAlertsTest, WhatWaitsWhenASourceIsJoinedIsNoNews) {
  EXPECT_EQ(update({}, false), "");
  EXPECT_EQ(update({"an"}, false), "");
  EXPECT_EQ(update({"an", "bn", "cW"}), "") << "every source has told";
  EXPECT_EQ(desktop_.played.size(), 0u);
  EXPECT_NE(update({"an", "bn", "cn"}), "");
  EXPECT_EQ(update({"an", "bn", "cn", "dw"}, false), "") << "Herdr is being joined";
  EXPECT_NE(update({"an", "bn", "cn", "dn"}, false), "") << "one that was seen working";
  EXPECT_EQ(update({"an", "bn", "cn", "dn", "en"}), "") << "a pane that waited before";
  EXPECT_NE(update({"an", "bn", "cn", "dn", "en", "fn"}), "");
}

TEST_F(AgentAlertsTest, OnlyReportedWorkFinishesAndPopsKeepTheirDistance) {
  preferences_.set(OstrelSetting::notifyDone, true);
  update({"aW", "bw", "cW", "dd"});
  EXPECT_EQ(update({"ad", "bd", "ci", "di"}),
            "1:sa|Agent a finished|Ready for your review.\n1:sc|Agent c finished|Ready for your review.\n");
  EXPECT_EQ(desktop_.played.size(), 1u);
  update({"aW"});
  update({"aw"});  // its transcript still grows after it said that it was idle
  EXPECT_EQ(update({"ad"}), "");
  for (const Duration quiet : {1500ms, 1501ms}) {
    loop_.advance(quiet);
    update({"aW"});
    EXPECT_NE(update({"ad"}), "");
    EXPECT_EQ(desktop_.played.size(), quiet > 1500ms ? 3u : 1u);
    sounds_.play(AgentSounds::Kind::needsYou, true);
  }
  preferences_.set(OstrelSetting::notifyDone, false);
  update({"aW"});
  EXPECT_EQ(update({"ad"}), "");
}

TEST(AgentSounds, AreWavesOfAPopThatFadesOut) {
  const std::string bytes = AgentSounds::wave(AgentSounds::Kind::finished, 7);
  EXPECT_EQ(bytes.substr(0, 44),
            "RIFF\x52\x6c\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x44\xac\0\0\x88\x58\1\0\2\0\x10\0"
            "data\x2e\x6c\0\0"s);
  std::vector<std::int16_t> samples(13847);
  ASSERT_EQ(bytes.size(), 44 + 2 * samples.size());
  std::memcpy(samples.data(), bytes.data() + 44, 2 * samples.size());
  EXPECT_GT(std::ranges::max(samples), 12000);
  EXPECT_LT(std::abs(samples.back()), 60);
}

TEST_F(AgentAlertsTest, TheShortcutTakesTwoQuickTapsOfControlAlone) {
  preferences_.set(OstrelSetting::doubleOptionOpens, true);
  std::string opened;
  DoubleOptionShortcut shortcut({loop_, desktop_, preferences_}, [&] { opened += "!"; });
  shortcut.update();
  for (const Duration pause : {0ms, 399ms, 10ms, 400ms, 100ms, 10ms, 0ms}) {
    loop_.advance(pause);
    opened += "t";
    if (pause == 0ms) desktop_.keysChanged(ModifierState::other);  // which breaks a sequence
    desktop_.keysChanged(ModifierState::controlAlone);
    desktop_.keysChanged(ModifierState::none);
  }
  EXPECT_EQ(opened, "tt!ttt!tt");
}

}  // namespace
}  // namespace ostrel
