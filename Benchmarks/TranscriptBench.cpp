// Transcripts: the first look at a window of 8,000,000 bytes, a look after one more line, and a look that
// finds nothing.
//
// The rival of a first look reads the file in pieces of 256 KiB and walks each line with simdjson's
// On-Demand, touching the same members as we do but keeping nothing: no messages, no ids, no trimming. Goals:
// a first look takes at most 1.2 times as long, a look after one line at most twice as long as reading and
// parsing that line alone.
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>
#include <simdjson.h>

#include "Conversations/TranscriptCache.h"
#include "Figures.h"
#include "TranscriptSample.h"

namespace ostrel::bench {
namespace {

namespace od = simdjson::ondemand;

constexpr std::size_t kWindow = 8'000'000;
constexpr std::size_t kPiece = 256 * 1024;

TranscriptSample& sample() {
  static TranscriptSample made;
  return made;
}

const std::string& transcript(bool codex) {
  static const std::string claudeFile = sample().file(
      "claude.jsonl", TranscriptSample::filled("", kWindow, [] { return sample().claudeRound(); }));
  static const std::string codexFile = sample().file(
      "codex.jsonl", TranscriptSample::filled("", kWindow, [] { return sample().codexRound(); }));
  return codex ? codexFile : claudeFile;
}

// The sum of the lengths of all texts touched.
class Rival {
 public:
  std::size_t line(const char* text, std::size_t length, std::size_t readable) {
    std::size_t sum = 0;
    od::document document;
    od::object object;
    if (parser_.iterate(text, length, readable).get(document) || document.get_object().get(object)) return 0;
    for (auto result : object) {
      od::field field;
      if (std::move(result).get(field)) return sum;
      const auto key = field.key();
      if (key == "type" || key == "uuid" || key == "timestamp" || key == "gitBranch") {
        sum += textOf(field.value());
      } else if (key == "isMeta") {
        bool meta = false;
        if (!field.value().get_bool().get(meta)) sum += meta;
      } else if (key == "message" || key == "payload") {
        sum += body(field.value());
      }
    }
    return sum;
  }

 private:
  static std::size_t textOf(od::value& value) {
    std::string_view text;
    return value.get_string().get(text) ? 0 : text.size();
  }
  static std::size_t body(od::value& value) {
    std::size_t sum = 0;
    od::object object;
    if (value.get_object().get(object)) return 0;
    for (auto result : object) {
      od::field field;
      if (std::move(result).get(field)) return sum;
      const auto key = field.key();
      if (key == "role" || key == "type" || key == "model" || key == "effort" || key == "reasoning_effort") {
        sum += textOf(field.value());
      } else if (key == "content") {
        sum += content(field.value());
      }
    }
    return sum;
  }
  static std::size_t content(od::value& value) {
    std::size_t sum = 0;
    od::array array;
    if (value.get_array().get(array)) return textOf(value);
    for (auto result : array) {
      od::object part;
      if (std::move(result).get_object().get(part)) continue;
      for (auto member : part) {
        od::field field;
        if (std::move(member).get(field)) return sum;
        if (field.key() == "type" || field.key() == "text") sum += textOf(field.value());
      }
    }
    return sum;
  }

  od::parser parser_;
};

// Calls `take(line, length, readable)` for each line of the file.
template <class Take>
void eachLine(const std::string& path, char* buffer, std::size_t capacity, Take take) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  std::size_t held = 0;
  for (;;) {
    const ssize_t got = ::read(fd, buffer + held, kPiece);
    if (got <= 0) break;
    held += static_cast<std::size_t>(got);
    char* line = buffer;
    while (char* end =
               static_cast<char*>(std::memchr(line, '\n', held - static_cast<std::size_t>(line - buffer)))) {
      take(line, static_cast<std::size_t>(end - line), capacity - static_cast<std::size_t>(line - buffer));
      line = end + 1;
    }
    held -= static_cast<std::size_t>(line - buffer);
    std::memmove(buffer, line, held);
  }
  ::close(fd);
}

void stream(benchmark::State& state, bool codex) {
  const std::string& path = transcript(codex);
  constexpr std::size_t kCapacity = 2 * kPiece;
  for (auto _ : state) {
    Rival rival;
    const auto buffer = std::make_unique_for_overwrite<char[]>(kCapacity);
    std::size_t sum = 0;
    eachLine(path, buffer.get(), kCapacity, [&](const char* line, std::size_t length, std::size_t readable) {
      sum += rival.line(line, length, readable);
    });
    benchmark::DoNotOptimize(sum);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(kWindow) * static_cast<std::int64_t>(state.iterations()));
}

void nlohmannPerLine(benchmark::State& state, bool codex) {
  const std::string& path = transcript(codex);
  constexpr std::size_t kCapacity = 2 * kPiece;
  const auto buffer = std::make_unique_for_overwrite<char[]>(kCapacity);
  for (auto _ : state) {
    std::size_t sum = 0;
    eachLine(path, buffer.get(), kCapacity, [&](const char* line, std::size_t length, std::size_t) {
      sum += nlohmann::json::parse(line, line + length, nullptr, false).size();
    });
    benchmark::DoNotOptimize(sum);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(kWindow) * static_cast<std::int64_t>(state.iterations()));
}

TranscriptCache freshCache() { return TranscriptCache(AgentTranscript(Environment{})); }

void firstLook(benchmark::State& state, bool codex) {
  const std::string& path = transcript(codex);
  for (auto _ : state) {
    TranscriptCache cache = freshCache();
    benchmark::DoNotOptimize(cache.read(path, {}).messages.size());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(kWindow) * static_cast<std::int64_t>(state.iterations()));
}

// A file that gets one line more before every measured call.
class Growing {
 public:
  Growing() : path_(sample().file("growing.jsonl", transcriptStart())) {
    fd_ = ::open(path_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    line_ = sample().claude(
        "assistant", R"("message":{"role":"assistant","model":"m","content":[{"type":"text","text":")" +
                         sample().text(2300, 2301) + "\"}]}");
  }
  Growing(const Growing&) = delete;
  Growing& operator=(const Growing&) = delete;
  ~Growing() { ::close(fd_); }

  void grow() {
    // A new message: its id differs.
    const std::string number = std::to_string(1'000'000 + lines_++);
    line_.replace(line_.find("\"uuid\":\"") + 8, number.size(), number);
    if (::write(fd_, line_.data(), line_.size()) < 0) std::abort();
  }
  const std::string& path() const { return path_; }
  const std::string& line() const { return line_; }

 private:
  static std::string transcriptStart() {
    return TranscriptSample::filled("", 200'000, [] { return sample().claudeRound(); });
  }
  std::string path_;
  std::string line_;
  int fd_ = -1;
  int lines_ = 0;
};

template <class Look>
void measureAppends(benchmark::State& state, Growing& growing, Look look) {
  for (auto _ : state) {
    growing.grow();
    const auto start = std::chrono::steady_clock::now();
    look();
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
}

void appendParse(benchmark::State& state) {
  Growing growing;
  Rival rival;
  std::vector<char> buffer(64 * 1024);
  auto offset = static_cast<off_t>(std::filesystem::file_size(growing.path()));
  measureAppends(state, growing, [&] {
    const int fd = ::open(growing.path().c_str(), O_RDONLY | O_CLOEXEC);
    const ssize_t got = ::pread(fd, buffer.data(), growing.line().size(), offset);
    ::close(fd);
    offset += got;
    benchmark::DoNotOptimize(rival.line(buffer.data(), static_cast<std::size_t>(got) - 1, buffer.size()));
  });
}

void appendRead(benchmark::State& state) {
  Growing growing;
  TranscriptCache cache = freshCache();
  cache.read(growing.path(), {});
  measureAppends(state, growing, [&] { benchmark::DoNotOptimize(cache.read(growing.path(), {}).lines); });
}

void appendSnapshot(benchmark::State& state) {
  Growing growing;
  TranscriptCache cache = freshCache();
  cache.read(growing.path(), {});
  measureAppends(state, growing,
                 [&] { benchmark::DoNotOptimize(cache.read(growing.path(), {}).snapshot()); });
}

void unchangedStat(benchmark::State& state) {
  const std::string& path = transcript(false);
  for (auto _ : state) {
    struct stat info;
    benchmark::DoNotOptimize(::stat(path.c_str(), &info));
  }
}

void unchangedRead(benchmark::State& state) {
  const std::filesystem::path path = transcript(false);
  TranscriptCache cache = freshCache();
  cache.read(path, {});
  for (auto _ : state) benchmark::DoNotOptimize(cache.read(path, {}).lines);
}

BENCHMARK_CAPTURE(stream, claude, false)->Name("Transcript/claude/stream")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(firstLook, claude, false)
    ->Name("Transcript/claude/firstLook")
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(nlohmannPerLine, claude, false)
    ->Name("Transcript/claude/nlohmann")
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(stream, codex, true)->Name("Transcript/codex/stream")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(firstLook, codex, true)->Name("Transcript/codex/firstLook")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(nlohmannPerLine, codex, true)
    ->Name("Transcript/codex/nlohmann")
    ->Unit(benchmark::kMicrosecond);
// A fixed count: the file grows by a line each time.
BENCHMARK(appendParse)->Name("Transcript/append/parse")->UseManualTime()->Iterations(1500);
BENCHMARK(appendRead)->Name("Transcript/append/read")->UseManualTime()->Iterations(1500);
BENCHMARK(appendSnapshot)->Name("Transcript/append/snapshot")->UseManualTime()->Iterations(1500);
BENCHMARK(unchangedStat)->Name("Transcript/unchanged/stat");
BENCHMARK(unchangedRead)->Name("Transcript/unchanged/read");

[[maybe_unused]] const bool figures =
    figure("first look at 8 MB of Claude Code, to a stream of On-Demand", "Transcript/claude/firstLook",
           "Transcript/claude/stream", 1.2) &&
    figure("the same to a tree of values for each line", "Transcript/claude/firstLook",
           "Transcript/claude/nlohmann", 0.15) &&
    figure("first look at 8 MB of Codex, to a stream of On-Demand", "Transcript/codex/firstLook",
           "Transcript/codex/stream", 1.2) &&
    figure("one line more, to reading and parsing it", "Transcript/append/read", "Transcript/append/parse",
           2.0) &&
    figure("nothing new, to one stat", "Transcript/unchanged/read", "Transcript/unchanged/stat", 1.3);

}  // namespace
}  // namespace ostrel::bench
