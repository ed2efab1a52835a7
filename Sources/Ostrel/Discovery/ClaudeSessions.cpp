#include "Discovery/ClaudeSessions.h"

#include <cmath>

#include "Discovery/ExternalAgents.h"
#include "Runtime/Files.h"
#include "Runtime/Json.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

constexpr std::size_t kFileBytes = 1 << 20;
// The file says when the program was ready, the kernel when it started.
constexpr double kStartDifference = 10'000;         // milliseconds
constexpr double kLargestDate = 9'000'000'000'000;  // milliseconds; the clock's type ends in the year 2262

double milliseconds(WallTime time) {
  return std::chrono::duration<double, std::milli>(time.time_since_epoch()).count();
}

std::optional<WallTime> date(std::optional<double> milliseconds) {
  if (!milliseconds || !(std::abs(*milliseconds) < kLargestDate)) return std::nullopt;
  return WallTime(std::chrono::milliseconds(std::llround(*milliseconds)));
}

}  // namespace

std::optional<ClaudeSession> parseClaudeSession(std::string_view bytes, std::int64_t pid, WallTime started) {
  const auto file = json::parse(bytes);
  if (!file || json::integer(*file, "pid") != pid) return std::nullopt;
  auto id = json::string(*file, "sessionId");
  if (!id || !text::canonicalUuid(*id)) return std::nullopt;
  const auto startedAt = json::number(*file, "startedAt");
  if (!startedAt || !(std::abs(*startedAt - milliseconds(started)) < kStartDifference)) return std::nullopt;

  ClaudeSession session{std::move(*id), "unknown", date(json::number(*file, "statusUpdatedAt"))};
  if (!session.since) session.since = date(json::number(*file, "updatedAt"));
  const auto status = json::string(*file, "status");
  if (status && !status->empty()) session.state = ExternalAgents::claudeState(text::lowercase(*status));
  return session;
}

std::optional<ClaudeSession> ClaudeSessions::session(std::int64_t pid, WallTime started) const {
  const auto bytes = files::read(folder_ / (std::to_string(pid) + ".json"), kFileBytes);
  if (!bytes) return std::nullopt;
  return parseClaudeSession(*bytes, pid, started);
}

}  // namespace ostrel
