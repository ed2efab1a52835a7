#include "Codex/CodexRandom.h"

#include <array>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <fmt/format.h>

#include "Runtime/Failure.h"

namespace ostrel::codex {

void fillRandom(std::span<unsigned char> bytes) {
  if (::RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1)
    throw Failure("No random bytes are available.");
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

std::string base64(std::string_view bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');  // and the zero that libcrypto adds
  const int length =
      ::EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                        reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(length));
  return text;
}

}  // namespace ostrel::codex
