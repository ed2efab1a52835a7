#include "Conversations/AgentReadingStyle.h"

#include <algorithm>

#include "Runtime/Text.h"

namespace ostrel {

namespace {

// A line drawn from one side to the other: at least 9 characters, all of them of these.
bool isRule(std::string_view line) {
  std::size_t count = 0;
  for (; !line.empty(); ++count) {
    constexpr std::string_view kStrokes[] = {"─", "━", "_", "—"};
    const auto stroke =
        std::ranges::find_if(kStrokes, [&](std::string_view s) { return line.starts_with(s); });
    if (stroke == std::end(kStrokes)) return false;
    line.remove_prefix(stroke->size());
  }
  return count >= 9;
}

bool isIndented(std::string_view line) { return line.starts_with("    ") || line.starts_with('\t'); }

}  // namespace

std::vector<AgentReadingStyle::Block> AgentReadingStyle::blocks(std::string_view text) {
  std::vector<Block> result;
  std::vector<std::string_view> lines;
  const auto flush = [&] {
    if (lines.empty()) return;
    Block& block = result.emplace_back();
    block.id = static_cast<int>(result.size()) - 1;
    for (const auto& line : lines) block.text.append(&line == lines.data() ? "" : "\n").append(line);
    block.monospaced = block.text.find("```") != std::string::npos || std::ranges::any_of(lines, isIndented);
    lines.clear();
  };
  bool fenced = false;
  for (const auto line : text::split(text, '\n')) {
    const auto trimmed = text::trimBlanks(line);
    if (trimmed.starts_with("```")) {
      if (!fenced) flush();
      lines.push_back(line);
      if (fenced) flush();
      fenced = !fenced;
    } else if (fenced) {
      lines.push_back(line);
    } else if (trimmed.empty()) {
      flush();
    } else if (!isRule(trimmed) && trimmed != "❯" && trimmed != ">") {
      lines.push_back(line);
    }
  }
  flush();
  return result;
}

}  // namespace ostrel
