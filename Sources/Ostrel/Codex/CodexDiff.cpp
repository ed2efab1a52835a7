#include "Codex/CodexDiff.h"

#include "Runtime/Text.h"

namespace ostrel {

namespace {

DiffLine::Kind kindOf(std::string_view line) {
  if (line.starts_with('+')) return DiffLine::Kind::added;
  if (line.starts_with('-')) return DiffLine::Kind::removed;
  return line.starts_with("@@") ? DiffLine::Kind::place : DiffLine::Kind::same;
}

}  // namespace

std::vector<DiffLine> diffLines(const CodexCard::Change& change) {
  std::string_view diff = text::dropSuffix(change.diff, "\n");
  std::vector<DiffLine> lines;
  if (diff.empty()) return lines;
  const bool added = change.kind == "add";
  const bool bare = added || change.kind == "delete";
  for (const std::string_view line : text::split(diff, '\n')) {
    if (bare) {
      lines.push_back(
          {added ? DiffLine::Kind::added : DiffLine::Kind::removed, (added ? "+" : "-") + std::string(line)});
    } else {
      lines.push_back({kindOf(line), std::string(line)});
    }
  }
  return lines;
}

}  // namespace ostrel
