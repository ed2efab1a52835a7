// The parsers of what a process table, an open-files list and a status word say: pure functions over text.
#include <algorithm>
#include <array>
#include <charconv>
#include <ctime>
#include <initializer_list>

#include <fmt/format.h>

#include "Discovery/ExternalAgents.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

constexpr std::array<std::string_view, 7> kDays = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array<std::string_view, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// A number of decimal digits alone, within bounds.
std::optional<int> number(std::string_view digits, int lowest, int highest) {
  int value = 0;
  const auto [rest, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (error != std::errc() || rest != digits.data() + digits.size()) return std::nullopt;
  return value >= lowest && value <= highest ? std::optional(value) : std::nullopt;
}

template <std::size_t count>
std::optional<int> position(const std::array<std::string_view, count>& names, std::string_view name) {
  const auto found = std::ranges::find(names, name);
  return found == names.end() ? std::nullopt : std::optional(static_cast<int>(found - names.begin()));
}

bool containsAny(std::string_view text, std::initializer_list<std::string_view> pieces) {
  return std::ranges::any_of(pieces, [&](std::string_view piece) { return text.contains(piece); });
}

}  // namespace

std::vector<ExternalProcess> ExternalAgents::processes(std::string_view table,
                                                       std::optional<std::int64_t> uid) {
  constexpr std::size_t kFields = 11;
  std::vector<ExternalProcess> processes;
  for (const auto line : text::split(table, '\n')) {
    const auto fields = text::words(line, kFields);
    if (fields.size() != kFields) continue;
    const auto pid = text::parseInteger(fields[0]);
    const auto parent = text::parseInteger(fields[1]);
    const auto user = text::parseInteger(fields[2]);
    if (!pid || !parent || fields[3].contains('Z')) continue;
    if (uid && user != *uid) continue;
    ExternalProcess process;
    process.pid = *pid;
    process.parent = *parent;
    process.started = fmt::format("{} {} {} {} {}", fields[5], fields[6], fields[7], fields[8], fields[9]);
    process.executable = text::trimBlanks(fields[10]);
    process.tty = fields[4];
    process.uid = user;
    processes.push_back(std::move(process));
  }
  return processes;
}

ExternalAgents::OpenFiles ExternalAgents::openFiles(std::string_view text) {
  OpenFiles files;
  std::string_view descriptor;
  std::string_view access;
  for (const auto line : text::split(text, '\n')) {
    if (line.empty()) continue;
    const std::string_view value = line.substr(1);
    if (line[0] == 'f') {
      descriptor = value;
      access = {};
    } else if (line[0] == 'a') {
      access = value;
    } else if (line[0] == 'n') {
      if (descriptor == "cwd") files.folder = value;
      if ((access == "w" || access == "u") && conversationID(value)) files.transcripts.emplace_back(value);
    }
  }
  return files;
}

WallTime ExternalAgents::startDate(std::string_view started) {
  const auto words = text::words(started);
  if (words.size() != 5 || !position(kDays, words[0])) return kDistantPast;
  const bool monthFirst = position(kMonths, words[1]).has_value();
  const auto month = position(kMonths, words[monthFirst ? 1 : 2]);
  const auto day = number(words[monthFirst ? 2 : 1], 1, 31);
  const auto year = number(words[4], 1970, 2200);
  const auto time = text::split(words[3], ':');
  if (!month || !day || !year || time.size() != 3) return kDistantPast;
  const auto hour = number(time[0], 0, 23);
  const auto minute = number(time[1], 0, 59);
  const auto second = number(time[2], 0, 60);
  if (!hour || !minute || !second) return kDistantPast;

  std::tm local{};
  local.tm_year = *year - 1900;
  local.tm_mon = *month;
  local.tm_mday = *day;
  local.tm_hour = *hour;
  local.tm_min = *minute;
  local.tm_sec = *second;
  local.tm_isdst = -1;
  const std::time_t seconds = std::mktime(&local);
  if (local.tm_mon != *month) return kDistantPast;  // a 31st that the month lacks
  return WallTime(std::chrono::seconds(seconds));
}

AgentState ExternalAgents::claudeState(std::string_view status) {
  if (containsAny(status, {"wait", "permission", "block", "input", "action", "approval"}))
    return AgentState::blocked;
  if (containsAny(status, {"busy", "work", "run", "think", "stream", "tool", "respond"}))
    return AgentState::working;
  return AgentState::idle;
}

}  // namespace ostrel
