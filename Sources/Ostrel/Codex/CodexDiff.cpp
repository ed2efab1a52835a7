#include "Codex/CodexDiff.h"

#include "Runtime/Text.h"

namespace ostrel {

namespace {

DiffLine::Kind kindOf(std::string_view line) {
  if (line.starts_with('+')) return DiffLine::Kind::added;
  if (line.starts_with('-')) return DiffLine::Kind::removed;
  return line.starts_with("@@") ? DiffLine::Kind::place : DiffLine::Kind::same;
}

// Codex writes a file's new place after the last hunk, where no line of a file can begin like that.
std::string_view takeNewPlace(std::string_view& diff) {
  constexpr std::string_view kMark = "Moved to: ";
  const auto last = diff.rfind('\n') + 1;  // 0 where there is one line only
  if (!diff.substr(last).starts_with(kMark)) return {};
  const std::string_view place = diff.substr(last);
  diff = diff.substr(0, last);
  while (diff.ends_with('\n')) diff.remove_suffix(1);
  return place;
}

}  // namespace

std::vector<DiffLine> diffLines(const CodexCard::Change& change) {
  std::string_view diff = text::dropSuffix(change.diff, "\n");
  std::vector<DiffLine> lines;
  if (change.kind == "update") {
    if (const std::string_view place = takeNewPlace(diff); !place.empty())
      lines.push_back({DiffLine::Kind::place, std::string(place)});
  }
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
