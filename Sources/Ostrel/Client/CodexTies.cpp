#include "Client/CodexTies.h"

#include <algorithm>
#include <optional>

#include "Runtime/Text.h"

namespace ostrel::codexTies {

namespace {

using namespace std::chrono_literals;

// A thread is made once the interface is up: half a second to some seconds after the start on a busy machine.
// The kernel's start may be a second early, and dates of threads are whole seconds.
constexpr auto kEarliest = -2s;
constexpr auto kLatest = 10s;

std::optional<Duration> age(const HerdrAgent& terminal, const HerdrAgent& thread) {
  if (!terminal.codexTie->started || !thread.codexTie || !thread.codexTie->started) return std::nullopt;
  return *thread.codexTie->started - *terminal.codexTie->started;
}

bool names(const HerdrAgent& terminal, const HerdrAgent& thread) {
  return std::ranges::find(terminal.codexTie->named, text::lowercase(thread.paneID)) !=
         terminal.codexTie->named.end();
}

bool begunTogether(const HerdrAgent& terminal, const HerdrAgent& thread) {
  const auto between = age(terminal, thread);
  return between && *between >= kEarliest && *between <= kLatest && terminal.context == thread.context;
}

bool belongs(const HerdrAgent& terminal, const HerdrAgent& thread) {
  if (terminal.codexTie->client != true) return false;
  const auto between = age(terminal, thread);
  return terminal.context == thread.context || (between && *between >= kEarliest);
}

// What is left on both sides while pairs are taken out.
struct Left {
  const std::vector<const HerdrAgent*>& terminals;
  const std::vector<const HerdrAgent*>& threads;
  std::vector<bool> tiedTerminals = std::vector<bool>(terminals.size());
  std::vector<bool> tiedThreads = std::vector<bool>(threads.size());
  std::vector<std::pair<std::size_t, std::size_t>> pairs{};

  // The only thread that `fits` the terminal; nothing for none or several.
  template <class Fits>
  std::optional<std::size_t> onlyThread(std::size_t terminal, Fits fits) const {
    std::optional<std::size_t> only;
    for (std::size_t i = 0; i < threads.size(); ++i) {
      if (tiedThreads[i] || !fits(*terminals[terminal], *threads[i])) continue;
      if (only) return std::nullopt;
      only = i;
    }
    return only;
  }
  template <class Fits>
  bool onlyTerminal(std::size_t terminal, std::size_t thread, Fits fits) const {
    for (std::size_t i = 0; i < terminals.size(); ++i) {
      if (i != terminal && !tiedTerminals[i] && fits(*terminals[i], *threads[thread])) return false;
    }
    return true;
  }
  template <class Fits>
  void take(Fits fits) {
    std::vector<std::pair<std::size_t, std::size_t>> found;
    for (std::size_t i = 0; i < terminals.size(); ++i) {
      if (tiedTerminals[i]) continue;
      const auto thread = onlyThread(i, fits);
      if (thread && onlyTerminal(i, *thread, fits)) found.emplace_back(i, *thread);
    }
    for (const auto& [terminal, thread] : found) {
      tiedTerminals[terminal] = tiedThreads[thread] = true;
      pairs.emplace_back(terminal, thread);
    }
  }
};

}  // namespace

bool mayShowThread(const HerdrAgent& process) {
  return process.provider == "codex" && process.externalProcess && process.externalProcess->tty != "??" &&
         process.codexTie && process.codexTie->client != false && !process.transcriptReference;
}

std::vector<std::pair<std::size_t, std::size_t>> tie(const std::vector<const HerdrAgent*>& terminals,
                                                     const std::vector<const HerdrAgent*>& threads) {
  Left left{terminals, threads};
  left.take(names);
  left.take(begunTogether);
  const auto free = [](const std::vector<bool>& tied) { return std::ranges::count(tied, false); };
  if (free(left.tiedTerminals) == 1 && free(left.tiedThreads) == 1) left.take(belongs);
  return std::move(left.pairs);
}

}  // namespace ostrel::codexTies
