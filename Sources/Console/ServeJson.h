// The records of `ostrelctl serve` as JSON, and the answers in its operations. docs/SERVE.md has the shapes.
// Pure functions.
#pragma once

#include <string>
#include <string_view>

#include "Client/OpenRequests.h"
#include "Runtime/Json.h"

namespace ostrel::console {

// As an element of "permissions" or "codex".
Json asObject(const OpenRequest& request);

// These throw `Failure` with what is wrong with the operation.
std::string requiredText(const Json& request, std::string_view key);
// What an "answer" operation decides. Whether its request takes that is not looked at.
RequestAnswer answerIn(const Json& request);

}  // namespace ostrel::console
