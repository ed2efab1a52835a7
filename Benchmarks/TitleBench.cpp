// The title in the last 2,000,000 bytes of a transcript.
//
// The rival reads 128 KiB at a time from the end, finds line ends with memrchr and compares each line's first
// bytes, the least that a search from the end can do; it parses nothing but the line that it finds, and knows
// one way of writing a line. Goal: at most 1.3 times as long, both for a title 1.3 MB from the end and where
// there is none.
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "Conversations/TitleSearch.h"
#include "Figures.h"
#include "TranscriptSample.h"

namespace ostrel::bench {
namespace {

constexpr std::size_t kWindow = 2'000'000;
constexpr std::size_t kBlock = 128 * 1024;
constexpr std::string_view kPrefix = R"({"type":"custom-title")";

TranscriptSample& sample() {
  static TranscriptSample made;
  return made;
}

std::string titleLine(std::string_view type, std::string_view key) {
  return fmt::format(R"({{"type":"{}","{}":"The title of it","sessionId":"{}"}})"
                     "\n",
                     type, key, TranscriptSample::kSession);
}

enum Case { deep, none, prompt };

const std::string& file(Case which) {
  // A custom title 1.3 MB from the end, with automatic ones behind it; neither titles nor users' lines; a
  // prompt at the start of the window, and nothing but tool results after it.
  static const std::string files[] = {
      sample().file("deep.jsonl",
                    TranscriptSample::filled("", kWindow, [] { return sample().claudeRound(); }) +
                        titleLine("custom-title", "customTitle") +
                        TranscriptSample::filled("", 1'300'000,
                                                 [] {
                                                   return sample().claudeRound() + sample().claudeRound() +
                                                          titleLine("ai-title", "aiTitle");
                                                 })),
      sample().file("none.jsonl",
                    TranscriptSample::filled("", 2 * kWindow, [] { return sample().claudeRound(false); })),
      sample().file("prompt.jsonl",
                    TranscriptSample::filled("", 2 * kWindow, [] { return sample().claudeRound(); }))};
  return files[which];
}

void rival(benchmark::State& state, Case which) {
  const int fd = ::open(file(which).c_str(), O_RDONLY | O_CLOEXEC);
  const auto size = static_cast<std::size_t>(::lseek(fd, 0, SEEK_END));
  for (auto _ : state) {
    const auto buffer = std::make_unique_for_overwrite<char[]>(kBlock + kPrefix.size());
    std::size_t end = size;
    bool found = false;
    std::memset(buffer.get(), 0, kPrefix.size());
    while (end > size - kWindow && !found) {
      const std::size_t count = std::min(kBlock, end - (size - kWindow));
      std::memmove(buffer.get() + count, buffer.get(), kPrefix.size());
      if (::pread(fd, buffer.get(), count, static_cast<off_t>(end - count)) < 0) std::abort();
      std::size_t limit = count;
      while (const void* newline = ::memrchr(buffer.get(), '\n', limit)) {
        limit = static_cast<std::size_t>(static_cast<const char*>(newline) - buffer.get());
        found = std::memcmp(buffer.get() + limit + 1, kPrefix.data(), kPrefix.size()) == 0;
        if (found) break;
      }
      end -= count;
    }
    benchmark::DoNotOptimize(found);
  }
  ::close(fd);
}

void ours(benchmark::State& state, Case which) {
  const int fd = ::open(file(which).c_str(), O_RDONLY | O_CLOEXEC);
  const auto size = static_cast<std::uint64_t>(::lseek(fd, 0, SEEK_END));
  for (auto _ : state) benchmark::DoNotOptimize(titleOfFile(fd, size, TranscriptSample::kSession));
  ::close(fd);
}

BENCHMARK_CAPTURE(rival, deep, deep)->Name("Title/backward/deep")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(ours, deep, deep)->Name("Title/ours/deep")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(rival, none, none)->Name("Title/backward/none")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(ours, none, none)->Name("Title/ours/none")->Unit(benchmark::kMicrosecond);
// No goal: the rival does not look for prompts.
BENCHMARK_CAPTURE(ours, prompt, prompt)->Name("Title/ours/prompt")->Unit(benchmark::kMicrosecond);

[[maybe_unused]] const bool figures =
    figure("a title 1.3 MB from the end, to lines from the end", "Title/ours/deep", "Title/backward/deep",
           1.3) &&
    figure("no title in 2 MB, to lines from the end", "Title/ours/none", "Title/backward/none", 1.3);

}  // namespace
}  // namespace ostrel::bench
