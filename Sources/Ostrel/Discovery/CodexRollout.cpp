#include "Discovery/CodexRollout.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

#include "Runtime/Files.h"
#include "Runtime/UniqueFd.h"

namespace ostrel {

namespace {

using namespace std::chrono_literals;

// How far back the first look goes, in steps until a line tells. A turn that has written more is "unknown".
constexpr std::array<std::uint64_t, 3> kTails = {256 << 10, 2 << 20, 16 << 20};
constexpr std::size_t kPiece = 256 * 1024;
// A longer line is not looked at.
constexpr std::size_t kLongestLine = 16 << 20;
constexpr std::size_t kMostFiles = 64;
constexpr auto kSilence = 60s;

constexpr std::size_t kMostCalls = 1000;

constexpr std::array<std::string_view, 3> kTurns = {"task_started", "task_complete", "turn_aborted"};
// "function_call", "custom_tool_call_output" ...
constexpr std::string_view kCall = "_call";
constexpr std::string_view kAnswer = "_call_output";

// "2026-11-23T14:08:55.123Z"
std::optional<WallTime> dateIn(const std::string& text) {
  std::tm parts{};
  int milliseconds = 0;
  const int count = std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d.%3dZ", &parts.tm_year, &parts.tm_mon,
                                &parts.tm_mday, &parts.tm_hour, &parts.tm_min, &parts.tm_sec, &milliseconds);
  if (count < 6 || parts.tm_year < 1970 || parts.tm_year > 2200 || milliseconds < 0) return std::nullopt;
  parts.tm_year -= 1900;
  parts.tm_mon -= 1;
  return WallTime(std::chrono::seconds(::timegm(&parts))) + std::chrono::milliseconds(milliseconds);
}

// Feeds the file's bytes from `begin` to `end`; how far it came.
std::uint64_t feedFrom(CodexRolloutParser& parser, int file, std::uint64_t begin, std::uint64_t end) {
  std::string piece(static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, end - begin)), '\0');
  while (begin < end) {
    const ssize_t count = ::pread(file, piece.data(), std::min<std::uint64_t>(piece.size(), end - begin),
                                  static_cast<off_t>(begin));
    if (count <= 0) break;
    parser.feed({piece.data(), static_cast<std::size_t>(count)});
    begin += static_cast<std::uint64_t>(count);
  }
  return begin;
}

}  // namespace

void CodexRolloutParser::feed(std::string_view bytes) {
  while (!bytes.empty()) {
    const auto end = bytes.find('\n');
    const std::string_view piece = bytes.substr(0, end);
    if (!skipping_ && pending_.size() + piece.size() > kLongestLine) {
      skipping_ = true;
      pending_.clear();
    }
    if (end == std::string_view::npos) {
      if (!skipping_) pending_ += piece;
      return;
    }
    if (!skipping_) {
      if (pending_.empty()) {
        line(piece);
      } else {
        pending_ += piece;
        line(pending_);
        pending_ = {};
      }
    }
    skipping_ = false;
    bytes.remove_prefix(end + 1);
  }
}

void CodexRolloutParser::line(std::string_view line) {
  // Nearly all lines hold none of the words, and are not parsed.
  if (!line.contains(kCall) &&
      !std::ranges::any_of(kTurns, [&](const auto word) { return line.contains(word); }))
    return;
  const auto value = json::parse(line);
  const auto kind = value ? json::string(*value, "type") : std::nullopt;
  const Json* const payload = kind ? json::member(*value, "payload") : nullptr;
  const auto type = payload ? json::string(*payload, "type") : std::nullopt;
  if (!type) return;
  if (kind == "response_item") return toolCalled(*type, *payload);
  if (kind != "event_msg" || std::ranges::find(kTurns, *type) == kTurns.end()) return;
  calls_.clear();
  turn_.state = type == "task_started" ? AgentState::working : AgentState::idle;
  turn_.since = dateIn(json::string(*value, "timestamp").value_or(""));
}

void CodexRolloutParser::toolCalled(const std::string& type, const Json& payload) {
  auto id = json::string(payload, "call_id");
  if (!id) return;
  if (type.ends_with(kAnswer)) {
    calls_.erase(*id);
  } else if (type.ends_with(kCall) && calls_.size() < kMostCalls) {
    calls_.insert(std::move(*id));
  }
}

std::optional<CodexTurn> CodexRollouts::look(const std::filesystem::path& path, std::optional<bool> mayAsk) {
  const auto status = files::status(path);
  if (!status || status->directory) return std::nullopt;
  const std::lock_guard guard(lock_);
  if (entries_.size() >= kMostFiles && !entries_.contains(path.string()))
    entries_.erase(
        std::ranges::min_element(entries_, {}, [](const auto& entry) { return entry.second.used; }));
  Entry& entry = entries_[path.string()];
  entry.used = ++looks_;
  if (entry.inode != status->inode || status->size < entry.read) {
    entry = Entry();
    entry.inode = status->inode;
    entry.used = looks_;
    if (!readFirst(entry, path, status->size)) {
      entries_.erase(path.string());
      return std::nullopt;
    }
  } else if (status->size > entry.read) {
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) return std::nullopt;
    entry.read = feedFrom(entry.parser, file.get(), entry.read, status->size);
  }
  if (mayAsk) entry.mayAsk = *mayAsk;
  CodexTurn turn = entry.parser.turn();
  const WallTime now = std::chrono::time_point_cast<Duration>(std::chrono::system_clock::now());
  if (turn.state == AgentState::working && entry.mayAsk && entry.parser.awaitsTool() &&
      now - status->modified >= kSilence)
    turn.state = AgentState::unknown;
  return turn;
}

bool CodexRollouts::readFirst(Entry& entry, const std::filesystem::path& path, std::uint64_t size) {
  const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) return false;
  for (const std::uint64_t tail : kTails) {
    const std::uint64_t begin = size > tail ? size - tail : 0;
    entry.parser = CodexRolloutParser(begin == 0);
    entry.read = feedFrom(entry.parser, file.get(), begin, size);
    if (begin == 0 || entry.parser.turn().state != AgentState::unknown) break;
  }
  return true;
}

}  // namespace ostrel
