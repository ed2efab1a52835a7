// Why the list of agents may not be whole: the words of the sources that failed, as the panel shows them.
// Main thread only.
#pragma once

#include <string>
#include <vector>

#include "Client/HerdrClient.h"

namespace ostrel {

// The weightier first, each said once. Changes are told by the client's `changes`.
std::vector<std::string> listProblems(HerdrClient& client);

}  // namespace ostrel
