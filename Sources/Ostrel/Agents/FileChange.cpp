#include "Agents/FileChange.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "Runtime/Text.h"

namespace ostrel {

namespace {

using Lines = std::vector<std::string>;

constexpr std::size_t kAround = 3;  // unchanged lines shown on each side of a change

struct Edit {
  char sign;  // ' ', '-' or '+'
  std::string line;
};

Lines linesOf(std::string_view text) {
  if (text.empty()) return {};
  const auto pieces = text::split(text::dropSuffix(text, "\n"), '\n');
  return {pieces.begin(), pieces.end()};
}

// What becomes of each line where both have lines of their own: what a longest common subsequence leaves.
void appendCommon(const Lines& gone, const Lines& come, std::vector<Edit>& all) {
  const std::size_t width = come.size() + 1;
  // By places in both, the length of the longest one behind them.
  std::vector<std::uint16_t> longest((gone.size() + 1) * width);
  for (std::size_t i = gone.size(); i-- > 0;) {
    for (std::size_t j = come.size(); j-- > 0;) {
      longest[i * width + j] = gone[i] == come[j]
                                   ? static_cast<std::uint16_t>(longest[(i + 1) * width + j + 1] + 1)
                                   : std::max(longest[(i + 1) * width + j], longest[i * width + j + 1]);
    }
  }
  std::size_t i = 0, j = 0;
  while (i < gone.size() || j < come.size()) {
    if (i < gone.size() && j < come.size() && gone[i] == come[j]) {
      all.push_back({' ', gone[i++]});
      ++j;
    } else if (j == come.size() ||
               (i < gone.size() && longest[(i + 1) * width + j] >= longest[i * width + j + 1])) {
      all.push_back({'-', gone[i++]});
    } else {
      all.push_back({'+', come[j++]});
    }
  }
}

// What becomes of each line, in order.
std::vector<Edit> edits(const Lines& before, const Lines& after) {
  const auto [end, other] = std::ranges::mismatch(before, after);
  const auto start = end - before.begin();
  const auto most = static_cast<std::ptrdiff_t>(std::min(before.size(), after.size())) - start;
  std::ptrdiff_t tail = 0;
  while (tail < most && before[before.size() - 1 - static_cast<std::size_t>(tail)] ==
                            after[after.size() - 1 - static_cast<std::size_t>(tail)])
    ++tail;
  const Lines gone(before.begin() + start, before.end() - tail);
  const Lines come(after.begin() + start, after.end() - tail);

  std::vector<Edit> all;
  for (auto line = before.begin(); line != before.begin() + start; ++line) all.push_back({' ', *line});
  if (gone.size() + come.size() > kLongestDiff || gone.empty() || come.empty()) {
    for (const std::string& line : gone) all.push_back({'-', line});
    for (const std::string& line : come) all.push_back({'+', line});
  } else {
    appendCommon(gone, come, all);
  }
  for (auto line = before.end() - tail; line != before.end(); ++line) all.push_back({' ', *line});
  return all;
}

}  // namespace

std::string fragmentDiff(std::string_view before, std::string_view after) {
  const std::vector<Edit> all = edits(linesOf(before), linesOf(after));
  std::vector<bool> shown(all.size());
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (all[i].sign == ' ') continue;
    const std::size_t end = std::min(all.size(), i + kAround + 1);
    for (std::size_t near = i - std::min(i, kAround); near < end; ++near) shown[near] = true;
  }
  std::string text;
  bool left = false;  // some lines out since the last one shown
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (shown[i]) {
      if (left && !text.empty()) text += "@@\n";
      text += all[i].sign + all[i].line + "\n";
    }
    left = !shown[i];
  }
  return text;
}

std::string addedLines(std::string_view content) {
  std::string text;
  for (const std::string& line : linesOf(content)) text += "+" + line + "\n";
  return text;
}

}  // namespace ostrel
