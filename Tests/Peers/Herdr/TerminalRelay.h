// `terminal session control`: carries stream records between standard input and output and a session's
// server.
#pragma once

#include <string>

#include "Runtime/Json.h"

namespace ostrel::standin {

// Until either side ends; the exit status. A refusal goes to standard error.
int relayTerminal(const std::string& socket, const Json& attach);

}  // namespace ostrel::standin
