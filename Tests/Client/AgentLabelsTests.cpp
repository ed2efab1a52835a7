#include <gtest/gtest.h>

#include "Client/AgentLabels.h"

namespace ostrel::agentLabels {
namespace {

TEST(AgentLabels, SayHowAnAgentIsDoing) {
  HerdrAgent agent;
  agent.session = "default";
  agent.state = AgentState::idle;
  EXPECT_EQ(statusLabel(agent, {.connected = true, .output = "x\nHooks need review"}),
            "Hook review required");
  agent.session = "codex-live";
  agent.state = AgentState::blocked;
  EXPECT_EQ(statusLabel(agent, {}), "Needs your answer") << "needs no connection";
  EXPECT_EQ(activityLine("a <summary>\nIt ran </summary> b"), "It ran");
  for (const char* plain : {"", "no </summary> <summary>", "<summary> </summary>"})
    EXPECT_EQ(activityLine(plain), "Agent background notification") << plain;
}

}  // namespace
}  // namespace ostrel::agentLabels
