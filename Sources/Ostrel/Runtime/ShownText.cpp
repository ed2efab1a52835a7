#include "Runtime/ShownText.h"

#include <cstdint>

#include <fmt/format.h>
#include <utf8proc.h>

#include "Runtime/Text.h"

namespace ostrel::text {

namespace {

constexpr std::string_view kOverride = "\u202D";     // left to right
constexpr std::string_view kEndOverride = "\u202C";  // pop

// One character and its bytes; ill-formed bytes come one by one, as U+FFFD.
struct Character {
  utf8proc_int32_t code = 0;
  std::string_view bytes;
};

Character characterAt(std::string_view text, std::size_t at) {
  Character found;
  const auto* const bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data()) + at;
  const auto length = utf8proc_iterate(bytes, static_cast<utf8proc_ssize_t>(text.size() - at), &found.code);
  if (length <= 0) return {0xFFFD, text.substr(at, 1)};
  found.bytes = text.substr(at, static_cast<std::size_t>(length));
  return found;
}

bool isPicture(utf8proc_int32_t code) {
  const int kind = utf8proc_get_property(code)->boundclass;
  return kind == UTF8PROC_BOUNDCLASS_EXTENDED_PICTOGRAPHIC || kind == UTF8PROC_BOUNDCLASS_E_MODIFIER;
}

// Not seen, or moves what is around it.
bool isHidden(utf8proc_int32_t code) {
  if (code == '\n' || code == '\t') return false;
  switch (utf8proc_category(code)) {
    case UTF8PROC_CATEGORY_CC:
    case UTF8PROC_CATEGORY_CF:  // bidirectional controls, joiners, tags, the soft hyphen
    case UTF8PROC_CATEGORY_ZL:
    case UTF8PROC_CATEGORY_ZP:
    case UTF8PROC_CATEGORY_CN:
    case UTF8PROC_CATEGORY_CS:
    case UTF8PROC_CATEGORY_CO:
      return true;
    default:
      break;
  }
  // Fillers and joiners of other categories: a blank that is a letter, a selector of variants.
  return code == 0x115F || code == 0x1160 || code == 0x3164 || code == 0xFFA0 || code == 0x034F ||
         code == 0x17B4 || code == 0x17B5 || code == 0x2800 || (code >= 0x180B && code <= 0x180F) ||
         (code >= 0xFE00 && code <= 0xFE0F) || (code >= 0xE0100 && code <= 0xE01EF);
}

bool runsRightToLeft(utf8proc_int32_t code) {
  const int direction = utf8proc_get_property(code)->bidi_class;
  return direction == UTF8PROC_BIDI_CLASS_R || direction == UTF8PROC_BIDI_CLASS_AL ||
         direction == UTF8PROC_BIDI_CLASS_AN;
}

}  // namespace

std::string marked(std::string_view text) {
  std::string shown;
  shown.reserve(text.size());
  utf8proc_int32_t before = 0;  // the last character that is seen
  for (std::size_t at = 0; at < text.size();) {
    const Character each = characterAt(text, at);
    at += each.bytes.size();
    constexpr utf8proc_int32_t kJoiner = 0x200D, kColoured = 0xFE0F;
    const bool joins = each.code == kColoured ? isPicture(before)
                                              : each.code == kJoiner && isPicture(before) &&
                                                    at < text.size() && isPicture(characterAt(text, at).code);
    if (!joins && isHidden(each.code)) {
      shown += fmt::format("⟨U+{:04X}⟩", static_cast<std::uint32_t>(each.code));
      before = 0;
      continue;
    }
    shown += each.code == 0xFFFD ? std::string_view("\uFFFD") : each.bytes;
    if (!joins) before = each.code;
  }
  return shown;
}

std::string inOrder(std::string_view text) {
  const std::string shown = marked(text);
  std::string all;
  all.reserve(shown.size());
  for (const std::string_view line : split(shown, '\n')) {
    bool turns = false;
    for (std::size_t at = 0; at < line.size() && !turns;) {
      const Character each = characterAt(line, at);
      at += each.bytes.size();
      turns = runsRightToLeft(each.code);
    }
    if (!all.empty() || line.data() != shown.data()) all += '\n';
    if (turns) all += kOverride;
    all += line;
    if (turns) all += kEndOverride;
  }
  return all;
}

std::string unordered(std::string_view text) {
  std::string plain(text);
  for (const std::string_view mark : {kOverride, kEndOverride}) {
    for (std::size_t at; (at = plain.find(mark)) != std::string::npos;) plain.erase(at, mark.size());
  }
  return plain;
}

}  // namespace ostrel::text
