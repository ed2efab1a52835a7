// A file change line by line, as a person reads it. Pure, any thread.
#pragma once

#include <string>
#include <vector>

#include "Codex/CodexCard.h"

namespace ostrel {

struct DiffLine {
  enum class Kind { same, added, removed, place };  // `place`: where in the file the next lines stand
  Kind kind = Kind::same;
  std::string text;  // with its sign, in the first column
  bool operator==(const DiffLine&) const = default;
};

// Codex gives an update as hunks without a file header, and a file that comes or goes as its bare content.
std::vector<DiffLine> diffLines(const CodexCard::Change& change);

}  // namespace ostrel
