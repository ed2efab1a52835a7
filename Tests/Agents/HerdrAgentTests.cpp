#include <gtest/gtest.h>

#include "Agents/HerdrAgent.h"
#include "Runtime/Files.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

using namespace std::literals;

HerdrAgent pane(std::string session, std::string paneID) {
  HerdrAgent agent;
  agent.session = std::move(session);
  agent.paneID = std::move(paneID);
  return agent;
}

TEST(HerdrAgent, IdentityIsAStoredFormat) {
  EXPECT_EQ(pane("default", "p7").id(), "7:defaultp7");
  EXPECT_EQ(pane("é", "p").id(), "2:ép");
  HerdrAgent remote = pane("s", "p");
  remote.machine = HerdrMachine{"m1", "Build box", "me@host", "s", true};
  EXPECT_EQ(remote.id(), "machine2:m1host7:me@host1:sp");
  EXPECT_EQ(remote.commandPrefix(), (std::vector{"--machine"s, "m1"s}));
  EXPECT_EQ(pane("s", "p").commandPrefix(), (std::vector{"--session"s, "s"s}));
}

TEST(AgentState, ItsNamesAreOfTheWireAndOtherWordsAreUnknown) {
  for (const char* name : {"unknown", "idle", "done", "working", "blocked"})
    EXPECT_EQ(stateName(stateNamed(name)), name);
  for (const char* other : {"", "Working", "paused"}) EXPECT_EQ(stateNamed(other), AgentState::unknown);
  EXPECT_TRUE(AgentState::blocked > AgentState::working && AgentState::working > AgentState::done &&
              AgentState::done > AgentState::idle && AgentState::idle > AgentState::unknown);
}

TEST(HerdrAgent, LooksActiveForTenSecondsAfterItsTranscriptGrew) {
  const WallTime changed{std::chrono::hours(1)};
  HerdrAgent agent = pane("external", "1:x");
  agent.transcriptKind = "path";
  agent.since = changed;
  EXPECT_FALSE(agent.recentlyActive(changed));  // no process
  agent.externalProcess = ExternalProcess{};
  EXPECT_TRUE(agent.recentlyActive(changed + 9'999ms));
  EXPECT_FALSE(agent.recentlyActive(changed + 10s));
  agent.state = AgentState::idle;
  EXPECT_FALSE(agent.recentlyActive(changed)) << "it has told better";
}

}  // namespace
}  // namespace ostrel
