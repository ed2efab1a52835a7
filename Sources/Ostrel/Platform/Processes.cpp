#include "Platform/Processes.h"

#include <algorithm>

#include "Runtime/Text.h"

namespace ostrel {

std::string oneLine(std::string_view bytes) {
  if (std::ranges::all_of(bytes, [](char c) { return c >= ' ' && c < 0x7F; })) return std::string(bytes);
  std::string line;
  for (const char c : text::repairUtf8(bytes)) {
    const auto byte = static_cast<unsigned char>(c);
    // U+0080 to U+009F are C2 80 to C2 9F.
    const bool secondByte = !line.empty() && line.back() == '\xC2' && byte <= 0x9F && byte >= 0x80;
    if (secondByte) {
      line.back() = '?';
    } else {
      line.push_back(byte < 0x20 || byte == 0x7F ? '?' : c);
    }
  }
  return line;
}

}  // namespace ostrel
