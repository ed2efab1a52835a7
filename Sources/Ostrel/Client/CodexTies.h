// Which loaded Codex thread runs in which terminal. Pure; any thread.
//
// A terminal that joined the app server holds nothing that names its thread, so the two are told by what is
// known of both, and only where that leaves one of each: never a guess between two.
#pragma once

#include <string_view>
#include <utility>
#include <vector>

#include "Agents/HerdrAgent.h"

namespace ostrel::codexTies {

// Whether a process may be the terminal of a loaded thread: one with a terminal and no conversation of its
// own, which the kernel does not know to be without a connection to the app server.
bool mayShowThread(const HerdrAgent& process);

// Pairs of indices: of `terminals` (all of which may show a thread) and of `threads`. Each index stands in at
// most one pair. In this order:
// - the terminal was told to resume the thread;
// - both are of one folder, and the thread was made when the terminal started;
// - one terminal and one thread are left at all, of one folder or made after the start, and the kernel says
//   that the terminal is connected.
std::vector<std::pair<std::size_t, std::size_t>> tie(const std::vector<const HerdrAgent*>& terminals,
                                                     const std::vector<const HerdrAgent*>& threads);

}  // namespace ostrel::codexTies
