// Random bytes, identifiers and base64, from libcrypto. Any thread.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace ostrel::codex {

// Throws `Failure` when the system has no randomness to give.
void fillRandom(std::span<unsigned char> bytes);

// A random UUID (version 4), in lower case.
std::string randomUuid();

std::string base64(std::string_view bytes);

}  // namespace ostrel::codex
