#include <fcntl.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "Conversations/TranscriptCache.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;

std::string line(const std::string& text, const std::string& extra = "") {
  return R"({"type":"user",)" + extra + R"("message":{"content":")" + text + "\"}}\n";
}

class TranscriptCacheTest : public testing::Test {
 protected:
  fs::path write(std::string_view bytes, const std::string& name = "t") { return folder.write(name, bytes); }
  void append(const fs::path& file, std::string_view bytes) {
    std::ofstream(file, std::ios::binary | std::ios::app) << bytes;
    touch(file);
  }
  // Gives every change a time of its own, however fast the test runs.
  void touch(const fs::path& file) {
    ++clock.tv_sec;
    const timespec times[2] = {clock, clock};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  }
  // "id=text" of each message.
  std::vector<std::string> read(const fs::path& file) {
    std::vector<std::string> texts;
    for (const auto& message : cache.read(file, {}).snapshot().messages)
      texts.push_back(message.id + "=" + message.text);
    return texts;
  }

  using Texts = std::vector<std::string>;
  TemporaryFolder folder;
  TranscriptCache cache{AgentTranscript(Environment{{}, folder.path(), {}})};
  timespec clock{1'700'000'000, 0};
};

TEST_F(TranscriptCacheTest, GrowsByWholeLinesAndKeepsItsIds) {
  const auto file = write(line("a") + "\n" + line("b").substr(0, 20));
  EXPECT_EQ(read(file), (Texts{"line-1=a"}));
  append(file,
         line("b").substr(20) + "broken\n" + line("c", R"("gitBranch":"x",)") + line("d").substr(0, 30));
  EXPECT_EQ(read(file), (Texts{"line-1=a", "line-3=b", "line-5=c"}));
  EXPECT_EQ(cache.read(file, {}).details.branch, "x");
  append(file, line("d").substr(30));
  EXPECT_EQ(read(file), (Texts{"line-1=a", "line-3=b", "line-5=c", "line-6=d"}));
}

TEST_F(TranscriptCacheTest, AnUnchangedFileIsNotOpened) {
  const auto file = write(line("a"));
  touch(file);
  EXPECT_EQ(read(file), (Texts{"line-1=a"}));
  // Other bytes under the same size, time and inode are not noticed.
  std::fstream(file, std::ios::in | std::ios::out) << line("b");
  --clock.tv_sec;
  touch(file);
  EXPECT_EQ(read(file), (Texts{"line-1=a"}));
  touch(file);  // nothing was appended
  EXPECT_EQ(read(file), (Texts{"line-1=a"}));
}

TEST_F(TranscriptCacheTest, ReplacedAndCutFilesStartAnew) {
  const auto file = write(line("a") + line("b"));
  EXPECT_EQ(read(file).size(), 2u);
  write(line("x") + line("y"), "new");
  fs::rename(folder.path() / "new", file);
  EXPECT_EQ(read(file), (Texts{"line-1=x", "line-2=y"}));
  fs::resize_file(file, line("x").size());
  EXPECT_EQ(read(file), (Texts{"line-1=x"}));
  fs::resize_file(file, 0);
  EXPECT_EQ(read(file), Texts{});
  append(file, line("z"));
  EXPECT_EQ(read(file), (Texts{"line-1=z"}));
}

TEST_F(TranscriptCacheTest, TheTailWindowLosesItsCutFirstLine) {
  constexpr std::size_t window = TranscriptCache::kTailWindow;
  const std::string first = line("first", R"("gitBranch":"head",)");
  const std::string last = line("last");
  const std::string filler =
      "{\"x\":\"" + std::string(window - first.size() - last.size() - 9, 'f') + "\"}\n";
  const auto file = write(first + filler + last);
  ASSERT_EQ(fs::file_size(file), window);
  EXPECT_EQ(read(file), (Texts{"line-1=first", "line-3=last"}));

  // One byte more: the window cuts the first line, whose branch comes from the head.
  const auto longer = write(" " + first + filler + last, "longer.jsonl");
  EXPECT_EQ(read(longer), (Texts{"line-2=last"}));
  EXPECT_EQ(cache.read(longer, {}).details.branch, "head");
  append(longer, line("more"));
  EXPECT_EQ(read(longer), (Texts{"line-2=last", "line-3=more"}));

  // A cut that falls behind a newline costs the whole line after it.
  const auto exact = write("{}\n" + first + filler + last, "exact.jsonl");
  EXPECT_EQ(read(exact), (Texts{"line-2=last"}));
}

TEST_F(TranscriptCacheTest, OneLineLongerThanTheWindow) {
  const auto file = write(line("a"));
  fs::resize_file(file, 100'000'000);  // a line of NUL bytes that never ends
  EXPECT_EQ(read(file), Texts{});
  append(file, "x\n" + line("b"));
  EXPECT_EQ(read(file), (Texts{"line-1=b"}));
}

TEST_F(TranscriptCacheTest, KeepsTheTwentyFilesLookedAtLast) {
  std::vector<fs::path> files;
  for (int i = 0; i < 21; ++i) files.push_back(write(line("old"), std::to_string(i) + ".jsonl"));
  for (const auto& file : files) touch(file);
  for (std::size_t i = 0; i < 20; ++i) read(files[i]);
  read(files[0]);
  read(files[20]);  // 1 goes, 0 does not
  clock.tv_sec -= 21;
  for (const auto& file : files) {
    // Unnoticed where the parsed state is still there.
    std::fstream(file, std::ios::in | std::ios::out) << line("new");
    touch(file);
  }
  for (const std::size_t kept : {0u, 2u, 20u}) EXPECT_EQ(read(files[kept]), (Texts{"line-1=old"})) << kept;
  EXPECT_EQ(read(files[1]), (Texts{"line-1=new"}));
}

}  // namespace
}  // namespace ostrel
