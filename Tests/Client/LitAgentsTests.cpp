#include <gtest/gtest.h>

#include "Client/LitAgents.h"
#include "Support/MemoryPreferences.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;
using enum AgentLight;

class LitAgentsTest : public testing::Test, private LitAgents::Round {
 protected:
  static HerdrAgent agent(std::string_view state) {
    HerdrAgent agent;
    agent.session = "s";
    agent.paneID = "p";
    agent.title = "A";
    agent.state = stateNamed(state);
    return agent;
  }
  void now(const HerdrAgent& agent) {
    records_ = {agent};
    inventory_.changed(AgentInventory::Source::herdr, records_);
  }
  void now(const std::string& state) { now(agent(state)); }
  AgentLight light() const { return lit_.list().agents.at(0).light; }

  VirtualLoop loop_;
  MemoryPreferences preferences_;
  std::vector<HerdrAgent> records_;
  AgentInventory inventory_{preferences_};
  bool complete_ = true;
  std::string calls_;
  LitAgents lit_{loop_, inventory_, *this};

 private:
  void reconcileRequests() override { calls_ += "requests "; }
  bool complete() override { return complete_; }
};

TEST_F(LitAgentsTest, WhoHearsOfAChangeSeesItsLight) {
  now("working");
  lit_.changed();
  loop_.runFor(1s);
  EXPECT_EQ(light(), working);
  std::vector<AgentLight> seen;
  const Subscription views = lit_.observe([&] { seen.push_back(light()); });
  now("idle");
  lit_.changed();
  loop_.runFor(1s);
  EXPECT_EQ(seen, std::vector{done}) << "never idle while it has just finished";
  lit_.markSeen(agent("idle").id());
  loop_.runFor(1s);
  EXPECT_EQ(seen, (std::vector{done, idle}));
}

TEST_F(LitAgentsTest, BurstsAreDeliveredOnceAndQuietRoundsNotAtAll) {
  now("idle");
  const Subscription views = lit_.observe([&] { calls_ += "views "; });
  const auto callsIn = [&](Duration time) {
    loop_.runFor(time);
    return std::exchange(calls_, {});
  };
  for (int i = 0; i < 5; ++i) lit_.changed();
  EXPECT_EQ(callsIn(0ms), "requests views ");
  lit_.changed();
  EXPECT_EQ(callsIn(49ms), "");
  EXPECT_EQ(callsIn(1ms), "requests views ");
  lit_.roundEnded();
  EXPECT_EQ(callsIn(1s), "");
  // A transcript that has stopped growing changes no record.
  HerdrAgent growing = agent("unknown");
  growing.externalProcess = ExternalProcess{};
  growing.transcriptKind = "path";
  growing.since = loop_.wallNow();
  now(growing);
  lit_.changed();
  callsIn(9s);
  EXPECT_EQ(light(), working);
  loop_.runFor(2s);
  lit_.roundEnded();
  EXPECT_EQ(callsIn(1s), "requests views ");
  EXPECT_EQ(light(), idle);
  complete_ = false;
  lit_.roundEnded();
  EXPECT_EQ(callsIn(1s), "requests views ");
}

TEST_F(LitAgentsTest, AFirstRoundThatFindsNobodyIsDelivered) {
  complete_ = false;  // others have not told yet: that is no reason to say nothing
  bool told = false;
  const Subscription views = lit_.observe([&] { told = true; });
  lit_.roundEnded();
  loop_.runFor(1s);
  EXPECT_TRUE(std::exchange(told, false) && lit_.list().agents.empty());
  complete_ = true;
  lit_.roundEnded();
  loop_.runFor(1s);
  EXPECT_TRUE(told && lit_.list().complete);
}

}  // namespace
}  // namespace ostrel
