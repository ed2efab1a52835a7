#include "Runtime/Random.h"

#include <array>
#include <cstdlib>
#include <iterator>
#include <unistd.h>

#include <fmt/format.h>

namespace ostrel {

void fillRandom(std::span<unsigned char> bytes) noexcept {
  // More than 256 bytes, or no such call: bytes that can be guessed would be worse than an end.
  if (::getentropy(bytes.data(), bytes.size()) != 0) std::abort();
}

std::string randomUuid() {
  std::array<unsigned char, 16> bytes;
  fillRandom(bytes);
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0f) | 0x40);
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3f) | 0x80);
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    fmt::format_to(std::back_inserter(text), "{:02x}", bytes[i]);
  }
  return text;
}

}  // namespace ostrel
