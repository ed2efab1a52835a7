// The window of the terminal in which an agent runs, found from outside: the agent descends from the program
// that owns it. Main thread only but for `lineage`.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

namespace ostrel::TerminalWindow {

// The process and those that it descends from, the nearest first, by a text of `Processes::table`. Any
// thread.
std::vector<std::int64_t> lineage(std::string_view table, std::int64_t pid);

// What brings forward the window that belongs to the nearest of these; empty where there is none: the agent
// runs in a multiplexer, on another machine, or in a program whose windows the X server doesn't know.
std::function<void()> of(const std::vector<std::int64_t>& lineage);

}  // namespace ostrel::TerminalWindow
