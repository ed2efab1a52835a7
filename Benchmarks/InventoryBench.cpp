// The merged list after one of its four sources changed, beside a sort of (key, index) pairs over views of
// the same records.
#include <algorithm>
#include <array>
#include <random>
#include <string_view>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "Client/AgentInventory.h"
#include "Figures.h"
#include "Platform/Preferences.h"

namespace {

using namespace ostrel;

class NoPreferences final : public Preferences {
  std::optional<Json> object(std::string_view) const override { return std::nullopt; }
  void set(std::string_view, Json) override {}
  void remove(std::string_view) override {}
  void registerDefaults(const PreferenceMap&) override {}
};

// `count` agents, a quarter from each source, in no order. One in eight conversations is in two sources.
struct Machine {
  explicit Machine(std::size_t count) {
    const char* const sessions[] = {"default", "external", "codex-live", "build"};
    std::mt19937 random(7);
    for (std::size_t source = 0; source < 4; ++source) {
      for (std::size_t i = 0; i < count / 4; ++i) {
        HerdrAgent agent;
        agent.session = sessions[source];
        const std::size_t conversation = source == 1 && i % 4 == 0 ? i : source * count + i;
        const std::string id = fmt::format("0f8fad5b-d9cb-469f-a165-{:012x}", conversation);
        agent.paneID = source == 2 ? id : fmt::format("{}:pane", random());
        agent.provider = source == 2 ? "codex" : "claude";
        agent.title = fmt::format("Agent number {} of many", i);
        agent.state = AgentState::working;
        agent.context = "/home/someone/projects/one-of-them";
        agent.transcriptReference = id;
        agent.transcriptKind = "id";
        if (source == 1) agent.externalProcess.emplace();
        if (source == 3) agent.machine = HerdrMachine{.id = "m", .label = "m", .target = "t", .session = "s"};
        lists[source].push_back(std::move(agent));
      }
      std::ranges::shuffle(lists[source], random);
      for (const HerdrAgent& agent : lists[source]) ids.push_back(agent.id());
    }
    changed = lists[0];
    for (std::size_t i = 0; i < changed.size(); i += 10) changed[i].state = AgentState::done;
  }
  std::array<std::vector<HerdrAgent>, 4> lists;
  std::vector<HerdrAgent> changed;  // the first source, with other states here and there
  std::vector<std::string> ids;
};

void merge(benchmark::State& state, bool changes) {
  const Machine machine(static_cast<std::size_t>(state.range(0)));
  const NoPreferences preferences;
  AgentInventory inventory(preferences);
  for (std::size_t i = 0; i < 4; ++i)
    inventory.changed(static_cast<AgentInventory::Source>(i), machine.lists[i]);
  benchmark::DoNotOptimize(inventory.merged().all.size());
  bool other = false;
  for (auto _ : state) {
    other = !other;
    if (changes) inventory.changed(AgentInventory::Source::herdr, other ? machine.changed : machine.lists[0]);
    benchmark::DoNotOptimize(inventory.merged().all.size());
  }
}

void sortPairs(benchmark::State& state) {
  const Machine machine(static_cast<std::size_t>(state.range(0)));
  std::vector<std::pair<std::string_view, std::size_t>> pairs;
  for (auto _ : state) {
    pairs.clear();
    for (std::size_t i = 0; i < machine.ids.size(); ++i) pairs.emplace_back(machine.ids[i], i);
    std::ranges::sort(pairs);
    benchmark::DoNotOptimize(pairs.data());
  }
}

void oneSourceChanged(benchmark::State& state) { merge(state, true); }
void nothingChanged(benchmark::State& state) { merge(state, false); }

BENCHMARK(oneSourceChanged)
    ->Name("Inventory/oneSourceChanged10000")
    ->Arg(10000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(oneSourceChanged)->Name("Inventory/oneSourceChanged100")->Arg(100);
BENCHMARK(nothingChanged)->Name("Inventory/nothingChanged")->Arg(10000);
BENCHMARK(sortPairs)->Name("Inventory/sortPairs10000")->Arg(10000)->Unit(benchmark::kMillisecond);

[[maybe_unused]] const bool figures =
    bench::figure("10,000 agents merged after a change, to a sort of pairs",
                  "Inventory/oneSourceChanged10000", "Inventory/sortPairs10000", 2.5);

}  // namespace
