// What an agent does, as its own program or terminal tells it. Sources turn their words into it where they
// read them, and faces into words where they write; between them nobody compares texts.
#pragma once

#include <cstdint>
#include <string_view>

namespace ostrel {

// In the order of urgency, the least first.
enum class AgentState : std::uint8_t { unknown, idle, done, working, blocked };

// "unknown", "idle" and so on: a word of our wire.
std::string_view stateName(AgentState state);
// The state of that name; `unknown` for any other word.
AgentState stateNamed(std::string_view name);

}  // namespace ostrel
