// The records of `ostrelctl serve` as JSON, and the answers in its operations. docs/SERVE.md has the shapes.
// Pure functions.
#pragma once

#include <string>
#include <string_view>

#include "Claude/ClaudePermissionRequest.h"
#include "Codex/CodexCard.h"
#include "Codex/CodexRequest.h"
#include "Runtime/Json.h"

namespace ostrel::console {

// Without the agent that asks.
Json asObject(const ClaudePermissionRequest& request);
Json asObject(const CodexCard& card);

// These throw `Failure` with what is wrong with the operation.
std::string requiredText(const Json& request, std::string_view key);
ClaudePermissionAnswer answerIn(const Json& request);
// What goes back to Codex: the result of a choice, or what was typed.
std::string codexResultIn(const Json& request, const CodexRequest& asked);

}  // namespace ostrel::console
