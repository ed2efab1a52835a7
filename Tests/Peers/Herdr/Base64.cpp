#include "Base64.h"

#include <cstdint>

namespace ostrel::standin {

namespace {
constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
}

std::string encodeBase64(std::string_view bytes) {
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i)
      group = group << 8 | (at + i < bytes.size() ? static_cast<unsigned char>(bytes[at + i]) : 0u);
    for (std::size_t i = 0; i < 4; ++i)
      text += at + i > bytes.size() ? '=' : kAlphabet[group >> (18 - 6 * i) & 63];
  }
  return text;
}

std::string decodeBase64(std::string_view text) {
  std::string bytes;
  std::uint32_t group = 0;
  unsigned bits = 0;
  for (const char c : text) {
    const auto value = kAlphabet.find(c);
    if (value == std::string_view::npos) break;
    group = group << 6 | static_cast<std::uint32_t>(value);
    bits += 6;
    if (bits < 8) continue;
    bits -= 8;
    bytes += static_cast<char>(group >> bits & 0xFF);
  }
  return bytes;
}

}  // namespace ostrel::standin
