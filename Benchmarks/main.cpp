// All benchmarks in one program. Rounds of different benchmarks alternate, so that a ratio of two medians of
// one run is not a ratio of two moods of the machine.
#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "Figures.h"

namespace ostrel::bench {

namespace {

struct Figure {
  std::string title;
  std::string ours;
  std::string rival;
  double goal;
};

std::vector<Figure>& figures() {
  static std::vector<Figure> all;
  return all;
}

// Prints as usual, and keeps every round's real time, in nanoseconds.
class Collector : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
        rounds_[run.run_name.function_name].push_back(run.real_accumulated_time /
                                                      static_cast<double>(run.iterations) * 1e9);
      }
    }
  }
  const std::map<std::string, std::vector<double>>& rounds() const { return rounds_; }

 private:
  std::map<std::string, std::vector<double>> rounds_;
};

double median(std::vector<double> values) {
  std::ranges::sort(values);
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

std::string duration(double nanoseconds) {
  if (nanoseconds >= 1e6) return fmt::format("{:.2f} ms", nanoseconds / 1e6);
  if (nanoseconds >= 1e3) return fmt::format("{:.2f} us", nanoseconds / 1e3);
  return fmt::format("{:.0f} ns", nanoseconds);
}

}  // namespace

bool figure(std::string title, std::string ours, std::string rival, double goal) {
  figures().push_back({std::move(title), std::move(ours), std::move(rival), goal});
  return true;
}

}  // namespace ostrel::bench

int main(int argc, char** argv) {
  using namespace ostrel::bench;
  std::vector<std::string> words(argv, argv + argc);
  words.insert(words.begin() + 1, {"--benchmark_enable_random_interleaving=true", "--benchmark_repetitions=9",
                                   "--benchmark_min_time=0.1"});
  std::vector<char*> arguments;
  for (auto& word : words) arguments.push_back(word.data());
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;

  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);

  fmt::print("{:<42} {:>12}   medians of rounds that took turns\n", "benchmark", "time");
  for (const auto& [name, rounds] : collector.rounds())
    fmt::print("{:<42} {:>12}\n", name, duration(median(rounds)));
  fmt::print("\n{:<52} {:>10} {:>12} {:>7} {:>6}\n", "figure", "ours", "rival", "ratio", "goal");
  for (const Figure& figure : figures()) {
    const auto ours = collector.rounds().find(figure.ours);
    const auto rival = collector.rounds().find(figure.rival);
    if (ours == collector.rounds().end() || rival == collector.rounds().end()) continue;
    const double ratio = median(ours->second) / median(rival->second);
    fmt::print("{:<52} {:>10} {:>12} {:>7.3f} {:>6} {}\n", figure.title, duration(median(ours->second)),
               duration(median(rival->second)), ratio, figure.goal, ratio <= figure.goal ? "" : "missed");
  }
  return 0;
}
