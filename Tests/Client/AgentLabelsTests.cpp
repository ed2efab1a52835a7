#include <gtest/gtest.h>

#include "Client/AgentLabels.h"

namespace ostrel::agentLabels {
namespace {

TEST(AgentLabels, SayHowAnAgentIsDoing) {
  HerdrAgent process;
  process.session = "external";
  process.externalProcess.emplace();
  HerdrAgent pane;
  pane.session = "default";
  const auto label = [](HerdrAgent agent, const char* state, const Circumstances& circumstances) {
    agent.state = state;
    return statusLabel(agent, circumstances);
  };
  EXPECT_EQ(label(process, "unknown", {.recentlyActive = true}), "Working");
  EXPECT_EQ(label(pane, "working", {.reconnecting = true}), "Reconnecting");
  EXPECT_EQ(label(pane, "idle", {.connected = true, .output = "x\nHooks need review"}),
            "Hook review required");
  pane.session = "codex-live";
  EXPECT_EQ(label(pane, "blocked", {}), "Needs your answer") << "needs no connection";
  EXPECT_EQ(activityLine("a <summary>\nIt ran </summary> b"), "It ran");
  for (const char* plain : {"", "no </summary> <summary>", "<summary> </summary>"})
    EXPECT_EQ(activityLine(plain), "Agent background notification") << plain;
}

}  // namespace
}  // namespace ostrel::agentLabels
