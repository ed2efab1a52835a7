// The words that say how an agent is doing, above its conversation and in it. Pure functions, any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Agents/HerdrAgent.h"

namespace ostrel::agentLabels {

// What the screen of a pane tells of the program in it.
bool hookReview(std::string_view output);
bool startupAttention(std::string_view output);

struct Circumstances {
  bool connected = false;     // with Herdr
  bool reconnecting = false;  // a link is wanted and none stands
  AgentLight light = AgentLight::idle;
  std::string_view output{};  // the terminal's text, where it is known
};
// The one word for each light: "Needs you", "Working", "Done", "Idle".
std::string_view lightWord(AgentLight light);
// What the agent's label reads while it can be answered where it is shown.
inline constexpr std::string_view kNeedsAnswer = "Needs your answer";
// One label for the agent: what keeps it from being seen or from running, or the word for its light.
std::string statusLabel(const HerdrAgent& agent, const Circumstances& circumstances);

// The line that stands for a folded message of the role "activity".
std::string activityLine(std::string_view text);

}  // namespace ostrel::agentLabels
