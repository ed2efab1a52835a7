// The title in the last 2,000,000 bytes of a transcript.
//
// The rival reads 128 KiB at a time from the end and searches each block backward for the bytes of the
// marker, by memrchr and a comparison. Goal: at most 1.3 times as long, both for a title 1.3 MB from the end
// and where there is none. A second rival finds only line ends and compares each line's first bytes, the
// least that any search from the end can do; it knows one way of writing a line, and no goal is set against
// it.
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

// Where `marker` stands last in the first `limit` bytes; null where it does not.
const char* lastMarker(const char* bytes, std::size_t limit) {
  constexpr std::string_view marker = "-title\"";
  while (const void* dash = ::memrchr(bytes, marker[0], limit)) {
    const char* const at = static_cast<const char*>(dash);
    if (std::memcmp(at, marker.data(), marker.size()) == 0) return at;
    limit = static_cast<std::size_t>(at - bytes);
  }
  return nullptr;
}

// Searches for the marker of a custom title.
void markers(benchmark::State& state, Case which) {
  const int fd = ::open(file(which).c_str(), O_RDONLY | O_CLOEXEC);
  const auto size = static_cast<std::size_t>(::lseek(fd, 0, SEEK_END));
  constexpr std::size_t kLap = 16;  // for a marker across two blocks
  for (auto _ : state) {
    const auto buffer = std::make_unique_for_overwrite<char[]>(kBlock + kLap);
    std::memset(buffer.get(), 0, kLap);
    bool found = false;
    for (std::size_t end = size; end > size - kWindow && !found;) {
      const std::size_t count = std::min(kBlock, end - (size - kWindow));
      std::memmove(buffer.get() + count, buffer.get(), kLap);
      if (::pread(fd, buffer.get(), count, static_cast<off_t>(end - count)) < 0) std::abort();
      std::size_t limit = count;
      while (const char* at = lastMarker(buffer.get(), limit)) {
        limit = static_cast<std::size_t>(at - buffer.get());
        found = limit >= 6 && std::memcmp(at - 6, "custom", 6) == 0;
        if (found) break;
      }
      end -= count;
    }
    benchmark::DoNotOptimize(found);
  }
  ::close(fd);
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
BENCHMARK_CAPTURE(markers, deep, deep)->Name("Title/markers/deep")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(markers, none, none)->Name("Title/markers/none")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(ours, none, none)->Name("Title/ours/none")->Unit(benchmark::kMicrosecond);
// No goal: the rival does not look for prompts.
BENCHMARK_CAPTURE(ours, prompt, prompt)->Name("Title/ours/prompt")->Unit(benchmark::kMicrosecond);

[[maybe_unused]] const bool figures =
    figure("a title 1.3 MB from the end, to a search for its marker", "Title/ours/deep", "Title/markers/deep",
           1.3) &&
    figure("no title in 2 MB, to a search for its marker", "Title/ours/none", "Title/markers/none", 1.3);

}  // namespace
}  // namespace ostrel::bench
