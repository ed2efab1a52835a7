// The window of the terminal in which an agent runs, found from outside: the agent descends from the program
// that owns it. Main thread only.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "Platform/Processes.h"

namespace ostrel::TerminalWindow {

// What brings the window forward; empty where there is none: the agent runs in a multiplexer, on another
// machine, or in a program whose windows the X server doesn't know. Reads the process table, some
// milliseconds.
std::function<void()> of(const HerdrAgent& agent, Processes& processes);

// The process and those that it descends from, the nearest first, by a text of `Processes::table`.
std::vector<std::int64_t> lineage(std::string_view table, std::int64_t pid);

}  // namespace ostrel::TerminalWindow
