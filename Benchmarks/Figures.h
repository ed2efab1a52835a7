// The figures that `./bench` reports: ours beside a rival's, both measured in the same run.
#pragma once

#include <string>

namespace ostrel::bench {

// Declares that `ours` (a benchmark's name) should cost at most `goal` times what `rival` costs. Call at
// namespace scope:
//   const bool figures = figure("First look", "Transcript/claude/firstLook",
//   "Transcript/claude/stream", 1.2);
bool figure(std::string title, std::string ours, std::string rival, double goal);

}  // namespace ostrel::bench
