#include "Discovery/ScanTable.h"

#include <algorithm>
#include <string>

#include "Discovery/ExternalAgents.h"
#include "Runtime/Text.h"

namespace ostrel {

ScanTable::ScanTable(Processes& processes, std::vector<ProcessRow> rows)
    : processes_(processes), ownUid_(processes.ownUid()), rows_(std::move(rows)) {}

ScanTable::ScanTable(Processes& processes, std::string_view text)
    : processes_(processes), ownUid_(processes.ownUid()) {
  for (ExternalProcess& process : ExternalAgents::processes(text, std::nullopt)) {
    const std::int64_t pid = process.pid;
    if (made_.insert_or_assign(pid, Entry{std::move(process), std::nullopt, std::nullopt}).second)
      order_.push_back(pid);
  }
}

const ScanTable::Entry* ScanTable::find(std::int64_t pid) {
  auto made = made_.find(pid);
  if (made == made_.end()) {
    const auto row = std::ranges::lower_bound(rows_, pid, {}, &ProcessRow::pid);
    if (row == rows_.end() || row->pid != pid) return nullptr;
    made = made_.emplace(pid, entryOf(*row)).first;
  }
  return made->second ? &*made->second : nullptr;
}

const ScanTable::Entry* ScanTable::findOwn(std::int64_t pid) {
  const Entry* const entry = find(pid);
  return entry && entry->process.uid == ownUid_ ? entry : nullptr;
}

std::vector<std::int64_t> ScanTable::candidates() {
  std::vector<std::int64_t> pids = order_;
  for (const ProcessRow& row : rows_) {
    if (mayBeAgent(row.name())) pids.push_back(row.pid);
  }
  std::erase_if(pids, [this](std::int64_t pid) {
    const Entry* const entry = findOwn(pid);
    return !entry || !entry->process.provider();
  });
  return pids;
}

std::size_t ScanTable::ownCount() {
  const auto own = [this](std::int64_t pid) { return findOwn(pid) != nullptr; };
  return static_cast<std::size_t>(std::ranges::count_if(order_, own) +
                                  std::ranges::count_if(rows_, own, &ProcessRow::pid));
}

bool ScanTable::mayBeAgent(std::string_view name) {
  constexpr std::size_t kShortest = 5;
  if (name.size() < kShortest) return false;
  const auto bare = text::trimBlanks(text::dropSuffix(name, ".exe"));
  return recognizedProvider(text::lastPathComponent(bare)).has_value();
}

std::optional<ScanTable::Entry> ScanTable::entryOf(const ProcessRow& row) {
  if (row.zombie) return std::nullopt;
  const auto uid = processes_.uid(row.pid);
  if (!uid) return std::nullopt;
  const std::string command = *uid == ownUid_ ? processes_.command(row) : oneLine(row.name());
  std::string executable(text::trimBlanks(command));
  if (executable.empty()) return std::nullopt;
  ExternalProcess process;
  process.pid = row.pid;
  process.parent = row.parent;
  process.started = processes_.startString(row.startSeconds);
  process.executable = std::move(executable);
  process.tty = processes_.terminalName(row.terminal);
  process.uid = *uid;
  return Entry{std::move(process), row.startSeconds, row.startTicks};
}

}  // namespace ostrel
