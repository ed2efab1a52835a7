// What an open request asks, in one line: "Claude wants to edit 3 files in payments", "Codex asks 2
// questions". Every face that names a request says this. Pure, any thread.
#pragma once

#include <string>

#include "Agents/HerdrAgent.h"
#include "Client/OpenRequests.h"

namespace ostrel {

// `agent` is the one that asks. Only what the request itself shows is told: never how the agent describes it.
// The project is named where the request is about it; for files that lie elsewhere it says so. Names of files
// and servers stand in it as they came.
std::string requestHeading(const OpenRequest& request, const HerdrAgent& agent);

}  // namespace ostrel
