// The command line's side of a session's socket. Blocks.
#pragma once

#include <string>
#include <string_view>

#include "Runtime/Json.h"
#include "Runtime/UniqueFd.h"

namespace ostrel::standin {

inline constexpr int kLongestAnswer = 8'000;  // milliseconds that the command line waits

// Throws `Failure` where nobody listens.
UniqueFd connectTo(const std::string& path);

// Whether a server listens there, working or stopped.
bool isRunning(const std::string& path);

// One connection, one request, the line that answers it; empty where the server hangs up instead. Throws
// `Failure` where nobody listens or nothing comes in time.
std::string request(const std::string& path, std::string_view method, const Json& params);

}  // namespace ostrel::standin
