#include "Client/AgentLabels.h"

#include "Runtime/Text.h"

namespace ostrel::agentLabels {

bool hookReview(std::string_view output) { return output.contains("Hooks need review"); }

bool startupAttention(std::string_view output) {
  return output.contains("Background server has incompatible feature settings");
}

std::string_view lightWord(AgentLight light) {
  switch (light) {
    case AgentLight::needsYou:
      return "Needs you";
    case AgentLight::working:
      return "Working";
    case AgentLight::done:
      return "Done";
    case AgentLight::idle:
      break;
  }
  return "Idle";
}

std::string statusLabel(const HerdrAgent& agent, const Circumstances& circumstances) {
  if (!agent.isExternal() && !agent.isCodexLive()) {
    if (!circumstances.connected) return circumstances.reconnecting ? "Reconnecting" : "Offline";
    if (hookReview(circumstances.output)) return "Hook review required";
    if (startupAttention(circumstances.output)) return "Setup needs attention";
  }
  return std::string(lightWord(circumstances.light));
}

std::string activityLine(std::string_view text) {
  // Claude Code's word on a turn that the person broke off.
  if (text.starts_with("[Request interrupted by user")) return "You interrupted the agent";
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
