#include "Runtime/Text.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <openssl/evp.h>

#include <fmt/format.h>
#include <utf8proc.h>

namespace ostrel::text {

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

// One step over UTF-8: the code point, or nothing for an ill-formed sequence, and the bytes it takes (for an
// ill-formed one the longest start of a well-formed sequence, at least one byte).
struct Step {
  std::optional<std::int32_t> codepoint;
  std::size_t length = 1;
};

Step decode(std::string_view bytes) {
  const auto at = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
  const unsigned lead = at(0);
  if (lead < 0x80) return {static_cast<std::int32_t>(lead), 1};
  std::size_t length = 0;
  unsigned low = 0x80;
  unsigned high = 0xBF;
  std::int32_t value = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
    value = static_cast<std::int32_t>(lead & 0x1F);
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    value = static_cast<std::int32_t>(lead & 0x0F);
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    value = static_cast<std::int32_t>(lead & 0x07);
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return {std::nullopt, 1};
  }
  for (std::size_t i = 1; i < length; ++i) {
    if (i >= bytes.size() || at(i) < low || at(i) > high) return {std::nullopt, i};
    value = (value << 6) | static_cast<std::int32_t>(at(i) & 0x3F);
    low = 0x80;
    high = 0xBF;
  }
  return {value, length};
}

bool isWhiteSpace(std::int32_t c) {
  if (c < 0x80) return c == ' ' || (c >= 0x09 && c <= 0x0D);
  return c == 0x85 || c == 0xA0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A) || c == 0x2028 ||
         c == 0x2029 || c == 0x202F || c == 0x205F || c == 0x3000;
}

bool isAsciiSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

bool isAscii(std::string_view bytes) {
  return std::ranges::none_of(bytes, [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

// Byte offsets of the character boundaries, told one by one; `visit` returns false to stop.
template <class Visit>
void eachCharacterEnd(std::string_view text, Visit visit) {
  std::size_t offset = 0;
  std::int32_t previous = -1;
  utf8proc_int32_t state = 0;
  while (offset < text.size()) {
    const Step step = decode(text.substr(offset));
    const std::int32_t current = step.codepoint.value_or(0xFFFD);
    if (previous >= 0 && utf8proc_grapheme_break_stateful(previous, current, &state) && !visit(offset))
      return;
    previous = current;
    offset += step.length;
  }
  if (!text.empty()) visit(text.size());
}

std::string mapped(std::string_view text, utf8proc_int32_t (*map)(utf8proc_int32_t)) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const Step step = decode(text);
    if (step.codepoint) {
      std::uint8_t bytes[4];
      const auto count = utf8proc_encode_char(map(*step.codepoint), bytes);
      result.append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count));
    } else {
      result.append(text.substr(0, step.length));
    }
    text.remove_prefix(step.length);
  }
  return result;
}

}  // namespace

bool isUtf8(std::string_view bytes) {
  while (!bytes.empty()) {
    const Step step = decode(bytes);
    if (!step.codepoint) return false;
    bytes.remove_prefix(step.length);
  }
  return true;
}

std::string repairUtf8(std::string_view bytes) {
  std::string result;
  result.reserve(bytes.size());
  while (!bytes.empty()) {
    const Step step = decode(bytes);
    result.append(step.codepoint ? bytes.substr(0, step.length) : kReplacement);
    bytes.remove_prefix(step.length);
  }
  return result;
}

std::string_view trim(std::string_view text) {
  while (!text.empty()) {
    const Step step = decode(text);
    if (!step.codepoint || !isWhiteSpace(*step.codepoint)) break;
    text.remove_prefix(step.length);
  }
  while (!text.empty()) {
    std::size_t start = text.size() - 1;
    while (start > 0 && text.size() - start < 4 && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80)
      --start;
    const Step step = decode(text.substr(start));
    if (!step.codepoint || start + step.length != text.size() || !isWhiteSpace(*step.codepoint)) break;
    text.remove_suffix(step.length);
  }
  return text;
}

std::string_view trimBlanks(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  for (;;) {
    const auto end = text.find(separator);
    pieces.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return pieces;
    text.remove_prefix(end + 1);
  }
}

std::vector<std::string_view> words(std::string_view text, std::size_t limit) {
  std::vector<std::string_view> fields;
  for (;;) {
    const auto start = std::ranges::find_if_not(text, isAsciiSpace);
    text.remove_prefix(static_cast<std::size_t>(start - text.begin()));
    if (text.empty()) return fields;
    if (limit != 0 && fields.size() + 1 == limit) {
      fields.push_back(text);
      return fields;
    }
    const auto end = std::ranges::find_if(text, isAsciiSpace);
    const auto length = static_cast<std::size_t>(end - text.begin());
    fields.push_back(text.substr(0, length));
    text.remove_prefix(length);
  }
}

std::size_t characterCount(std::string_view text) {
  if (isAscii(text) && text.find('\r') == std::string_view::npos) return text.size();
  std::size_t count = 0;
  eachCharacterEnd(text, [&](std::size_t) {
    ++count;
    return true;
  });
  return count;
}

std::string_view prefixCharacters(std::string_view text, std::size_t count) {
  if (count == 0) return text.substr(0, 0);
  std::size_t end = text.size();
  std::size_t seen = 0;
  eachCharacterEnd(text, [&](std::size_t offset) {
    end = offset;
    return ++seen < count;
  });
  return text.substr(0, end);
}

bool hasControlCharacter(std::string_view text) {
  while (!text.empty()) {
    const Step step = decode(text);
    if (step.codepoint && (*step.codepoint < 0x20 || (*step.codepoint >= 0x7F && *step.codepoint < 0xA0)))
      return true;
    text.remove_prefix(step.length);
  }
  return false;
}

std::string escapeControls(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const Step step = decode(text);
    const std::int32_t c = step.codepoint.value_or(0xFFFD);
    if (c == '\n') {
      result += "\\n";
    } else if (c == '\t') {
      result += "\\t";
    } else if (c < 0x20 || (c >= 0x7F && c < 0xA0)) {
      result += fmt::format("\\x{:02x}", c);
    } else if (step.codepoint) {
      result.append(text.substr(0, step.length));
    } else {
      result += kReplacement;
    }
    text.remove_prefix(step.length);
  }
  return result;
}

std::string lowercase(std::string_view text) { return mapped(text, utf8proc_tolower); }

std::string capitalizedFirst(std::string_view text) {
  if (text.empty()) return {};
  const std::size_t first = decode(text).length;
  return mapped(text.substr(0, first), utf8proc_totitle).append(text.substr(first));
}

std::string_view lastPathComponent(std::string_view path) {
  const auto end = path.find_last_not_of('/');
  if (end == std::string_view::npos) return path;
  const auto slash = path.rfind('/', end);
  const auto start = slash == std::string_view::npos ? 0 : slash + 1;
  return path.substr(start, end - start + 1);
}

std::string_view dropSuffix(std::string_view text, std::string_view suffix) {
  return text.ends_with(suffix) ? text.substr(0, text.size() - suffix.size()) : text;
}

std::optional<std::string> canonicalUuid(std::string_view text) {
  if (text.size() != 36) return std::nullopt;
  std::string result(text);
  for (std::size_t i = 0; i < result.size(); ++i) {
    char& c = result[i];
    if (i == 8 || i == 13 || i == 18 || i == 23) {
      if (c != '-') return std::nullopt;
    } else if (c >= 'A' && c <= 'F') {
      c = static_cast<char>(c - 'A' + 'a');
    } else if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) {
      return std::nullopt;
    }
  }
  return result;
}

std::string base64(std::string_view bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');  // and the zero that libcrypto adds
  const int length =
      ::EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                        reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(length));
  return text;
}

std::optional<long long> parseInteger(std::string_view text) {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return std::nullopt;
  }
  long long value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace ostrel::text
