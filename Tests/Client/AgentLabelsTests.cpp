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
  EXPECT_EQ(statusLabel(agent, {.light = AgentLight::needsYou}), "Needs you") << "needs no connection";
  EXPECT_EQ(statusLabel(agent, {.light = AgentLight::done}), "Done") << "the word is that of the light";
  EXPECT_EQ(activityLine("[Request interrupted by user for tool use]"), "You interrupted the agent");
  EXPECT_EQ(activityLine("a <summary>\nIt ran </summary> b"), "It ran");
  for (const char* plain : {"", "no </summary> <summary>", "<summary> </summary>"})
    EXPECT_EQ(activityLine(plain), "Agent background notification") << plain;
}

}  // namespace
}  // namespace ostrel::agentLabels
