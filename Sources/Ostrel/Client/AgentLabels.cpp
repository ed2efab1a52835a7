#include "Client/AgentLabels.h"

#include "Runtime/Text.h"

namespace ostrel::agentLabels {

bool hookReview(std::string_view output) { return output.contains("Hooks need review"); }

bool startupAttention(std::string_view output) {
  return output.contains("Background server has incompatible feature settings");
}

std::string statusLabel(const HerdrAgent& agent, const Circumstances& circumstances) {
  if (agent.isExternal() && !agent.isCodexLive()) {
    if (agent.state == AgentState::working) return "Working";
    if (agent.state == AgentState::blocked) return "Needs your answer in its terminal";
    if (agent.state == AgentState::idle) return "Idle";
    return circumstances.recentlyActive ? "Working" : "In its own terminal";
  }
  if (!circumstances.connected && !agent.isCodexLive())
    return circumstances.reconnecting ? "Reconnecting" : "Offline";
  if (hookReview(circumstances.output)) return "Hook review required";
  if (startupAttention(circumstances.output)) return "Setup needs attention";
  if (agent.state == AgentState::working) return "Working";
  if (agent.state == AgentState::blocked) return "Needs your answer";
  if (agent.state == AgentState::done) return "Done";
  return "Idle";
}

std::string activityLine(std::string_view text) {
  constexpr std::string_view kOpen = "<summary>";
  const auto open = text.find(kOpen);
  const auto close = open == std::string_view::npos ? open : text.find("</summary>", open);
  const std::string_view summary =
      close == std::string_view::npos
          ? std::string_view()
          : text::trim(text.substr(open + kOpen.size(), close - open - kOpen.size()));
  return summary.empty() ? "Agent background notification" : std::string(summary);
}

}  // namespace ostrel::agentLabels
