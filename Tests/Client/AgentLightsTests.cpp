#include <gtest/gtest.h>

#include "Client/AgentLights.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

using namespace std::literals;

const WallTime kLaunch = WallTime(1'700'000'000s);

HerdrAgent agentIn(std::string_view state, std::optional<WallTime> since = {}) {
  HerdrAgent agent;
  agent.session = "default";
  agent.paneID = "p1";
  agent.state = stateNamed(state);
  agent.since = since;
  return agent;
}

TEST(AgentLights, FollowTheStateAndWhatWasSeen) {
  struct Row {
    const char* state;
    std::optional<WallTime> since;
    AgentLight light;
  };
  const WallTime after = kLaunch + 1s;
  for (const Row& row : {Row{"working", {}, AgentLight::working},
                         {"done", kLaunch, AgentLight::idle},
                         {"done", after, AgentLight::done},
                         {"idle", after, AgentLight::done},
                         {"idle", {}, AgentLight::idle},
                         {"paused", after, AgentLight::idle}}) {
    EXPECT_EQ(AgentLights(kLaunch).light(agentIn(row.state, row.since), kLaunch + 1h), row.light)
        << row.state << " " << row.since.has_value();
  }
  AgentLights lights(kLaunch);
  lights.markSeen(agentIn("idle").id(), kLaunch + 2s);
  EXPECT_EQ(lights.light(agentIn("idle", after), kLaunch + 1h), AgentLight::idle);
}

TEST(AgentLights, AChangeThatWasObservedStandsInForTheSourcesDate) {
  AgentLights lights(kLaunch);
  const HerdrAgent done = agentIn("done");
  lights.observeStates(AgentList({done}), kLaunch + 1s);
  EXPECT_EQ(lights.light(done, kLaunch + 1s), AgentLight::idle) << "was done before the start";
  lights.observeStates(AgentList({agentIn("working")}), kLaunch + 2s);
  lights.observeStates(AgentList({done}), kLaunch + 3s);
  lights.observeStates(AgentList({done}), kLaunch + 9s);  // no change, no new date
  EXPECT_EQ(lights.light(done, kLaunch + 9s), AgentLight::done);
  lights.markSeen(done.id(), kLaunch + 5s);
  EXPECT_EQ(lights.light(done, kLaunch + 9s), AgentLight::idle);
}

TEST(AgentLights, AGrowingTranscriptLooksLikeWork) {
  HerdrAgent agent = agentIn("unknown");
  agent.externalProcess = ExternalProcess{};
  agent.transcriptKind = "path";
  agent.since = kLaunch;
  const AgentLights lights(kLaunch);
  EXPECT_EQ(lights.light(agent, kLaunch + 1s), AgentLight::working);
  EXPECT_EQ(lights.light(agent, kLaunch + 11s), AgentLight::idle);
  agent.tellsState = true;
  EXPECT_EQ(lights.light(agent, kLaunch + 1s), AgentLight::idle) << "it would say so if it worked";
  agent.state = AgentState::blocked;
  EXPECT_EQ(lights.light(agent, kLaunch + 1s), AgentLight::needsYou);
}

}  // namespace
}  // namespace ostrel
