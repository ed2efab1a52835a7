#include "Platform/Linux/ProcessStat.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include <fmt/format.h>

#include "Runtime/Text.h"

namespace ostrel {

namespace {

// Reads blank-separated numbers off the front of a text.
class Fields {
 public:
  explicit Fields(std::string_view text) : at_(text.data()), end_(text.data() + text.size()) {}

  bool skip(int count) {
    for (; count > 0; --count) {
      const void* blank = std::memchr(at_, ' ', static_cast<std::size_t>(end_ - at_));
      if (!blank) return false;
      at_ = static_cast<const char*>(blank) + 1;
    }
    return true;
  }
  template <class Number>
  bool read(Number& number) {
    const auto [rest, error] = std::from_chars(at_, end_, number);
    if (error != std::errc() || rest == end_ || *rest != ' ') return false;
    at_ = rest + 1;
    return true;
  }

 private:
  const char* at_;
  const char* end_;
};

template <class Number>
std::optional<Number> number(std::string_view text) {
  Number value{};
  const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || rest != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace

std::optional<ProcessRow> parseProcessStat(std::string_view bytes) {
  const auto open = bytes.find('(');
  const auto close = bytes.rfind(')');
  if (open == std::string_view::npos || close == std::string_view::npos || close < open) return std::nullopt;
  ProcessRow row;
  const auto name = bytes.substr(open + 1, close - open - 1).substr(0, row.comm.size() - 1);
  std::ranges::copy(name, row.comm.begin());

  const auto rest = bytes.substr(close + 1);
  if (rest.size() < 4 || rest[0] != ' ' || rest[2] != ' ') return std::nullopt;
  row.zombie = rest[1] == 'Z';
  Fields fields(rest.substr(3));
  // After the state: parent, group, session, terminal ... the start is the 19th.
  if (!fields.read(row.parent) || !fields.skip(2) || !fields.read(row.terminal) || !fields.skip(14) ||
      !fields.read(row.startTicks))
    return std::nullopt;
  return row;
}

std::optional<std::int64_t> parseBootTime(std::string_view bytes) {
  constexpr std::string_view key = "btime ";
  for (const auto line : text::split(bytes, '\n')) {
    if (line.starts_with(key)) return number<std::int64_t>(line.substr(key.size()));
  }
  return std::nullopt;
}

std::optional<std::string> parseTerminalName(std::int32_t device, std::string_view drivers) {
  const auto bits = static_cast<std::uint32_t>(device);
  const std::uint32_t major = (bits >> 8) & 0xFFF;
  const std::uint32_t minor = (bits & 0xFF) | ((bits >> 12) & 0xFFF00);
  if (major >= 136 && major <= 143) return fmt::format("pts/{}", minor + (major - 136) * 256);
  if (major == 4) return minor < 64 ? fmt::format("tty{}", minor) : fmt::format("ttyS{}", minor - 64);
  if (major == 5 && minor == 1) return "console";

  // "usbserial            /dev/ttyUSB   188 0-511 serial"
  for (const auto line : text::split(drivers, '\n')) {
    const auto words = text::words(line);
    constexpr std::string_view folder = "/dev/";
    if (words.size() < 4 || !words[1].starts_with(folder) || number<std::uint32_t>(words[2]) != major)
      continue;
    const auto range = text::split(words[3], '-');
    const auto first = number<std::uint32_t>(range.front());
    const auto last = number<std::uint32_t>(range.back());
    if (!first || !last || minor < *first || minor > *last) continue;
    const auto prefix = words[1].substr(folder.size());
    return range.size() == 1 ? std::string(prefix) : fmt::format("{}{}", prefix, minor - *first);
  }
  return std::nullopt;
}

}  // namespace ostrel
