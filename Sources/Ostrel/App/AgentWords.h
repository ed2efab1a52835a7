// What a row of the agent list says of its agent. Pure.
#pragma once

#include <string>

#include "Client/OpenRequests.h"
#include "Runtime/MainLoop.h"

namespace ostrel {

// How long an agent has been in its state. "now" within the first minute and for a time to come (clocks of
// other machines differ), then "4 min", "2 h", "3 d": whole ones, rounded down.
std::string ageWords(WallTime since, WallTime now);

// What is asked: of questions the first one. May have more than one line.
std::string askedWords(const OpenRequest& request);

}  // namespace ostrel
