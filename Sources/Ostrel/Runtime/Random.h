// Random bytes and identifiers, from the kernel. Any thread.
#pragma once

#include <span>
#include <string>

namespace ostrel {

// At most 256 bytes. Never fails: the kernel has had its randomness since the machine started.
void fillRandom(std::span<unsigned char> bytes) noexcept;

// A random UUID (version 4), in lower case.
std::string randomUuid();

}  // namespace ostrel
