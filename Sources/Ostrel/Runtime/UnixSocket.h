// Stream sockets of the Unix domain, for those who connect to them: one rule for how long a path may be and
// for whose program may be at the other end. Any thread. Whoever waits on the main loop awaits `readiness`.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/un.h>

#include "Runtime/UniqueFd.h"

namespace ostrel::unixSocket {

// Bytes of a path without its NUL: what an address holds on every platform.
inline constexpr std::size_t kLongestPath = 103;

enum class Mode : std::uint8_t { blocking, nonBlocking };
// A socket that is closed at exec; nothing when the system has no descriptor for it.
UniqueFd make(Mode mode);

// Nothing for a path that is empty or too long.
std::optional<sockaddr_un> address(const std::string& path);

enum class Refusal : std::uint8_t {
  path,         // empty or too long
  unreachable,  // nobody listens there, or the queue is full
  stranger,     // a program of another user does
};
// Connects `fd` and makes sure of the other end; nothing where all is well. A socket that does not block is
// connected, or not, at once.
std::optional<Refusal> connect(const UniqueFd& fd, const std::string& path);

}  // namespace ostrel::unixSocket
