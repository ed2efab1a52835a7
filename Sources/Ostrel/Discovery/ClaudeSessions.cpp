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
constexpr double kStartDifference = 10'000;  // milliseconds
// `claude -p`, which tells no status: it does one thing and ends.
constexpr std::string_view kPrints = "sdk-cli";
constexpr double kLargestDate = 9'000'000'000'000;  // milliseconds; the clock's type ends in the year 2262

double milliseconds(WallTime time) {
  return std::chrono::duration<double, std::milli>(time.time_since_epoch()).count();
}

std::optional<WallTime> date(std::optional<double> milliseconds) {
  if (!milliseconds || !(std::abs(*milliseconds) < kLargestDate)) return std::nullopt;
  return WallTime(std::chrono::milliseconds(std::llround(*milliseconds)));
}

// Whether the file was written by this process and not by an earlier one of its pid.
bool isOf(const Json& file, const ClaudeProcess& process) {
  const auto ticks = json::string(file, "procStart");
  if (ticks && process.startTicks) return *ticks == std::to_string(*process.startTicks);
  const auto startedAt = json::number(file, "startedAt");
  return startedAt && std::abs(*startedAt - milliseconds(process.started)) < kStartDifference;
}

}  // namespace

std::optional<ClaudeSession> parseClaudeSession(std::string_view bytes, const ClaudeProcess& process) {
  const auto file = json::parse(bytes);
  if (!file || json::integer(*file, "pid") != process.pid) return std::nullopt;
  auto id = json::string(*file, "sessionId");
  if (!id || !text::canonicalUuid(*id) || !isOf(*file, process)) return std::nullopt;

  ClaudeSession session{std::move(*id), AgentState::unknown, date(json::number(*file, "statusUpdatedAt"))};
  if (!session.since) session.since = date(json::number(*file, "updatedAt"));
  const auto status = json::string(*file, "status");
  if (status && !status->empty()) {
    session.state = ExternalAgents::claudeState(text::lowercase(*status));
  } else if (json::string(*file, "entrypoint") == kPrints) {
    session.state = AgentState::working;
  }
  return session;
}

std::optional<ClaudeSession> ClaudeSessions::read(const ClaudeProcess& process) const {
  const auto bytes = files::read(folder_ / (std::to_string(process.pid) + ".json"), kFileBytes);
  if (!bytes) return std::nullopt;
  return parseClaudeSession(*bytes, process);
}

std::optional<ClaudeSession> ClaudeSessions::session(
    const ClaudeProcess& process, const std::function<std::vector<std::int32_t>()>& innerPids) const {
  auto found = read(process);
  // Small pids are alike in every namespace, so here the start must tell the process.
  if (found || !process.startTicks) return found;
  for (const std::int32_t pid : innerPids()) {
    if (const auto session = read({pid, kDistantPast, process.startTicks})) return session;
  }
  return std::nullopt;
}

}  // namespace ostrel
