#include "App/OtherCopies.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <utility>

#include "App/Launch.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

constexpr std::string_view kProgramName = "Ostrel";

bool isOurName(std::string_view name) { return name == kProgramName; }

// Orders processes by their start.
std::pair<std::uint64_t, std::int32_t> start(const ProcessRow& row) { return {row.startTicks, row.pid}; }

}  // namespace

OtherCopies::OtherCopies(Processes& processes, Signals& signals, MainLoop& loop, std::int32_t ownPid)
    : processes_(processes), signals_(signals), loop_(loop), ownPid_(ownPid) {}

bool OtherCopies::quitOtherCopies() {
  std::vector<ProcessRow> rows = processes_.rows(isOurName);
  const auto own = std::ranges::find(rows, ownPid_, &ProcessRow::pid);
  const auto ownStart =
      own == rows.end() ? std::pair(std::numeric_limits<std::uint64_t>::max(), ownPid_) : start(*own);
  std::erase_if(rows, [this](const ProcessRow& row) { return !isCopy(row); });
  if (std::ranges::any_of(rows, [this](const ProcessRow& copy) { return processes_.traced(copy.pid); }))
    return true;
  std::erase_if(rows, [&](const ProcessRow& copy) { return start(copy) > ownStart; });
  if (rows.empty()) return false;
  for (const ProcessRow& copy : rows) signals_.terminate(copy.pid);
  killTimer_ = loop_.after(patience, [this, asked = std::move(rows)] { killRemaining(asked); });
  return false;
}

bool OtherCopies::isCopy(const ProcessRow& row) {
  return row.pid != ownPid_ && !row.zombie && processes_.uid(row.pid) == processes_.ownUid() &&
         text::lastPathComponent(processes_.executablePath(row.pid)) == kProgramName &&
         !launch::isTestRun(processes_.argumentList(row.pid));
}

// A process id may have gone to another process meanwhile; the start tells them apart.
void OtherCopies::killRemaining(const std::vector<ProcessRow>& asked) {
  for (const ProcessRow& row : processes_.rows(isOurName)) {
    const bool same = std::ranges::any_of(asked, [&](const ProcessRow& copy) {
      return copy.pid == row.pid && copy.startTicks == row.startTicks;
    });
    if (same && !row.zombie) signals_.kill(row.pid);
  }
}

}  // namespace ostrel
