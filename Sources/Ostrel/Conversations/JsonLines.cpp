#include "Conversations/JsonLines.h"

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <optional>

#include "Runtime/Text.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace ostrel {

namespace {

// Strings are looked at in blocks: one that simdjson has indexed has its closing quote, and there are
// SIMDJSON_PADDING readable bytes behind it.
constexpr int kBlock = 32;

// The place of the first quote or backslash in the block, or kBlock.
inline int plainLength(const char* at) {
#if defined(__SSE2__)
  const auto half = [](const char* bytes) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
    const __m128i quotes = _mm_cmpeq_epi8(block, _mm_set1_epi8('"'));
    const __m128i backslashes = _mm_cmpeq_epi8(block, _mm_set1_epi8('\\'));
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(quotes, backslashes)));
  };
  return std::countr_zero(half(at) | half(at + 16) << 16);
#else
  int length = 0;
  while (length < kBlock && at[length] != '"' && at[length] != '\\') ++length;
  return length;
#endif
}

const char* plainEnd(const char* at) {
  for (;; at += kBlock)
    if (const int length = plainLength(at); length < kBlock) return at + length;
}

// Four hexadecimal digits.
std::optional<std::uint32_t> hexUnit(const char* at) {
  std::uint32_t value = 0;
  for (int i = 0; i < 4; ++i) {
    const char c = at[i];
    std::uint32_t digit = 0;
    if (c >= '0' && c <= '9') {
      digit = static_cast<std::uint32_t>(c - '0');
    } else if ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F')) {
      digit = static_cast<std::uint32_t>((c | 0x20) - 'a' + 10);
    } else {
      return std::nullopt;
    }
    value = value << 4 | digit;
  }
  return value;
}

char* putUtf8(std::uint32_t c, char* to) {
  const auto put = [&](std::uint32_t byte) { *to++ = static_cast<char>(byte); };
  if (c < 0x80) {
    put(c);
  } else if (c < 0x800) {
    put(0xC0 | c >> 6);
    put(0x80 | (c & 0x3F));
  } else {
    if (c < 0x10000) {
      put(0xE0 | c >> 12);
    } else {
      put(0xF0 | c >> 18);
      put(0x80 | (c >> 12 & 0x3F));
    }
    put(0x80 | (c >> 6 & 0x3F));
    put(0x80 | (c & 0x3F));
  }
  return to;
}

// What a backslash and this character stand for; 0 for none. A table, as the processor can't foresee which
// escape comes.
constexpr auto kShortEscapes = [] {
  std::array<char, 256> table{};
  constexpr std::string_view names = "\"\\/bfnrt";
  constexpr std::string_view values = "\"\\/\b\f\n\r\t";
  for (std::size_t i = 0; i < names.size(); ++i) table[static_cast<unsigned char>(names[i])] = values[i];
  return table;
}();

// Decodes the escape whose backslash stands at `at` into at most 4 bytes; both pointers move past it.
bool putEscape(const char*& at, char*& to) {
  const char kind = at[1];
  at += 2;
  if (const char value = kShortEscapes[static_cast<unsigned char>(kind)]) {
    *to++ = value;
    return true;
  }
  if (kind != 'u') return false;
  const auto unit = hexUnit(at);
  if (!unit) return false;
  at += 4;
  std::uint32_t c = *unit;
  if (c >= 0xD800 && c < 0xE000) {
    const auto low = c < 0xDC00 && at[0] == '\\' && at[1] == 'u' ? hexUnit(at + 2) : std::nullopt;
    if (low && *low >= 0xDC00 && *low < 0xE000) {
      c = 0x10000 + ((c - 0xD800) << 10) + (*low - 0xDC00);
      at += 6;
    } else {
      c = 0xFFFD;
    }
  }
  to = putUtf8(c, to);
  return true;
}

}  // namespace

bool RawText::equals(std::string_view text) const {
  if (!begin_) return false;
  if (const auto whole = plain()) return *whole == text;
  std::string own;
  return appendTo(own) && own == text;
}

char RawText::decodedInitial() const {
  std::string own;
  return appendTo(own) ? own.front() : '\0';
}

bool RawText::appendTo(std::string& out) const {
  constexpr std::size_t kRoom = 512;
  const char* at = begin_;
  bool ended = false;
  bool valid = true;
  while (!ended) {
    const std::size_t size = out.size();
    out.resize_and_overwrite(std::max(size + kRoom, out.capacity()), [&](char* data, std::size_t room) {
      char* to = data + size;
      while (data + room - to >= kBlock) {
        std::memcpy(to, at, kBlock);
        const int length = plainLength(at);
        at += length;
        to += length;
        if (length == kBlock) continue;
        ended = *at == '"' || !(valid = putEscape(at, to));
        if (ended) break;
      }
      return static_cast<std::size_t>(to - data);
    });
  }
  return valid;
}

std::optional<std::string_view> RawText::plain() const {
  const char* end = plainEnd(begin_);
  if (*end != '"') return std::nullopt;
  return std::string_view(begin_, end);
}

simdjson::error_code LineParser::text(Value& value, RawText& out) {
  simdjson::ondemand::raw_json_string raw;
  const auto error = value.get_raw_json_string().get(raw);
  if (error && error != simdjson::INCORRECT_TYPE) return error;
  out = error ? RawText() : RawText(raw.raw());
  return simdjson::SUCCESS;
}

simdjson::error_code LineParser::isTrue(Value& value, bool& out) {
  const auto error = value.get_bool().get(out);
  if (error) out = false;
  return error == simdjson::INCORRECT_TYPE ? simdjson::SUCCESS : error;
}

void LineParser::trimMemory() {
  constexpr std::size_t kKept = 64 * 1024;
  if (parser_.capacity() > kKept) parser_ = simdjson::ondemand::parser();
  if (copy_.capacity() > kKept) std::string().swap(copy_);
}

std::string_view LineParser::prepared(std::string_view line, std::size_t readable) {
  if (!line.starts_with('{')) {
    const std::size_t start = line.find_first_not_of(" \t\r");
    if (start == std::string_view::npos || line[start] != '{') return {};
  }
  // simdjson looks at the byte after the line: it must not be a bracket.
  if (readable >= line.size() + simdjson::SIMDJSON_PADDING && line.data()[line.size()] == '\n') return line;
  copy_.assign(line);
  copy_.append(simdjson::SIMDJSON_PADDING, '\0');
  return std::string_view(copy_).substr(0, line.size());
}

std::string_view LineParser::repaired(std::string_view line) {
  copy_ = text::repairUtf8(line);
  const std::size_t length = copy_.size();
  copy_.append(simdjson::SIMDJSON_PADDING, '\0');
  return std::string_view(copy_).substr(0, length);
}

bool LineParser::reserve(std::size_t length) {
  // In powers of two: simdjson would allocate anew for each line that is longer than all before.
  constexpr std::size_t kLeast = 4096;
  if (length <= parser_.capacity()) return true;
  return parser_.allocate(std::bit_ceil(std::max(length, kLeast))) == simdjson::SUCCESS;
}

}  // namespace ostrel
