// What the command line makes of a run. Any argument that begins with "--" makes it a test run, which leaves
// other copies and the outer world alone; "--check-..." and "--snapshot..." make it a fixture run as well,
// with a preference store that disappears at its end. There is no usage text: other arguments mean nothing.
#pragma once

#include <string>
#include <vector>

namespace ostrel {

namespace launch {

// One line about the processes at each scan (and, here, one scan although a fixture run discovers nothing).
inline constexpr char kCheckDiscoveryLive[] = "--check-discovery-live";
// Followed by a folder: renders each view with made-up agents into it, and ends.
inline constexpr char kSnapshot[] = "--snapshot";
// Shows made-up agents and looks for none.
inline constexpr char kPreviewAgents[] = "--preview-agents";

// Whether any argument, the program path included, begins with "--check-" or "--snapshot".
bool isFixture(const std::vector<std::string>& arguments);

// Whether any argument after the program path begins with "--". Also asked of the arguments of other copies.
bool isTestRun(const std::vector<std::string>& arguments);

}  // namespace launch
}  // namespace ostrel
