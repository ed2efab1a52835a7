#include <fcntl.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "Conversations/ConversationTitle.h"
#include "Conversations/LineScan.h"
#include "Conversations/TitleSearch.h"
#include "Runtime/UniqueFd.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;
using Title = std::optional<std::string>;

const std::string kId = "0a1b2c3d-1111-4111-8111-00000000abcd";

std::string custom(const std::string& title, const std::string& session = kId) {
  return R"({"type":"custom-title","customTitle":")" + title + R"(","sessionId":")" + session + "\"}\n";
}
std::string automatic(const std::string& title) {
  return R"({"type":"ai-title","aiTitle":")" + title + R"(","sessionId":")" + kId + "\"}\n";
}
std::string prompt(const std::string& content, const std::string& extra = "") {
  return R"({"type":"user","message":{"role":"user","content":)" + content + "}," + extra +
         R"("sessionId":")" + kId + "\"}\n";
}

TEST(ConversationTitle, OfLines) {
  const auto repeated = [](const std::string& piece, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += piece;
    return text;
  };
  const struct {
    std::string data;
    Title expected;
  } table[] = {
      {custom("a") + custom("b") + automatic("c") + prompt("\"d\""), "b"},
      {automatic("a") + automatic("b") + prompt("\"d\""), "b"},
      {custom("a", "other") + automatic("b"), "b"},
      {custom("a") + custom(" ") + custom("x\\ny") + custom("\\u0085"), "a"},
      {custom("  a b\\n "), "a b"},
      {custom(repeated("👩‍👩‍👧", 300)), repeated("👩‍👩‍👧", 300)},
      {custom(repeated("é", 301)), {}},
      {R"({"type":"custom-title","customTitle":7,"sessionId":")" + kId + "\"}", {}},
      {R"({"type":"custom-title","aiTitle":"a","sessionId":")" + kId + "\"}", {}},
      {R"({"type" : "custom-title" , "customTitle":"a","sessionId":")" + kId + "\"}", "a"},
      {R"([{"type":"custom-title","customTitle":"a","sessionId":")" + kId + "\"}]", {}},
      {custom("a").substr(0, 60) + "\n" + custom("b").substr(5), {}},
      // Prompts: only with these very bytes, the first that a person may have typed.
      {R"({"type": "user","message":{"content":"a"},"sessionId":")" + kId + "\"}", {}},
      {prompt("\"/clear\"") + prompt("\"<command-name>\"") + prompt("\" \\n\"") + prompt("7") +
           prompt("\"meta\"", "\"isMeta\":true,") + prompt("[{\"type\":\"tool_result\",\"content\":\"x\"}]") +
           prompt("[{\"type\":\"image\"},{\"text\":\"p\",\"type\":\"text\"},{\"type\":\"text\",\"text\":"
                  "\"q\"}]") +
           prompt("\"second\""),
       "p"},
      {prompt("[{\"type\":\"text\"},{\"type\":\"text\",\"text\":\"q\"}]"), {}},
      {prompt("\"\\n  one line \\r\\n two\""), "one line"},
      {prompt("\"" + repeated("é", 48) + "\""), repeated("é", 48)},
      {prompt("\"" + repeated("é", 49) + "\""), repeated("é", 47) + "…"},
      {prompt("\"" + repeated("é", 46) + "   x\""), repeated("é", 46) + "…"},
  };
  for (const auto& row : table) EXPECT_EQ(conversationTitle(row.data, kId), row.expected) << row.data;
}

class TitleFileTest : public testing::Test {
 protected:
  // What the backward search finds. That it equals the definition is the fuzzer's part.
  Title search(const std::string& data) {
    const auto file = folder.write("t.jsonl", data);
    const UniqueFd fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    const auto title = titleOfFile(fd.get(), data.size(), kId, {});
    EXPECT_TRUE(title) << title.error();
    return title.value_or("failed");
  }
  TemporaryFolder folder;
};

TEST_F(TitleFileTest, OnlyTheLastTwoMillionBytesCount) {
  const std::string filler = std::string(2'000'000, 'f');
  const std::string exact = custom("in");
  EXPECT_EQ(search(exact + filler.substr(exact.size())), "in");
  EXPECT_EQ(search(exact + filler.substr(exact.size() - 1)), Title{});
  EXPECT_EQ(search(custom("out") + prompt("\"p\"") + filler.substr(500'000) + "\n" + prompt("\"q\"")), "out");
  EXPECT_EQ(search(prompt("\"p\"") + filler + "\n" + prompt("\"q\"") + filler.substr(1'000'000)), "q");
}

TEST(LineScan, FindsMarkersAtEveryPlace) {
  const auto check = [](const std::string& data) {
    // "Nowhere" is the highest of all places; one more makes it the lowest.
    const auto title = data.rfind(kTitleMarker);
    const auto last = std::max(title + 1, data.rfind(kPromptMarker) + 1) - 1;
    EXPECT_EQ(findTitleMarker(data), data.find(kTitleMarker));
    EXPECT_EQ(findPromptMarker(data), data.find(kPromptMarker));
    EXPECT_EQ(findLastTitleMarker(data), title);
    EXPECT_EQ(findLastMarker(data), last);
  };
  for (std::size_t size = 0; size < 400; ++size) {
    // The bytes that the search probes for stand in many places.
    std::string data(size, '-');
    for (std::size_t i = 6; i < size; i += 13) data[i] = '"';
    for (std::size_t i = 3; i + 6 < size; i += 11) data[i] = 'y', data[i + 6] = 'u';
    check(data);
    for (const auto marker : {kTitleMarker, kPromptMarker}) {
      for (std::size_t at = 0; at + marker.size() <= size; at += 1 + size / 20) {
        std::string with = data;
        with.replace(at, marker.size(), marker);
        check(with);
        with.replace(0, std::min<std::size_t>(size, 7), std::string(kTitleMarker).substr(0, size));
        check(with);
        ASSERT_FALSE(HasFailure()) << size << " " << at;
      }
    }
  }
}

TEST(ConversationTitles, AConversationThatIsBeingWrittenIsReadEachHalfMinute) {
  TemporaryFolder home;
  AgentTranscript transcripts{Environment{{}, home.path(), {}}};
  ConversationTitles titles{transcripts};
  time_t second = 1'700'000'000;
  const TimePoint start{1h};
  const auto title = [&](TimePoint now) { return titles.linkedTitle(kId, "id", "claude", now); };
  const auto write = [&](const std::string& data) {
    const auto file = home.write(".claude/projects/-p/" + kId + ".jsonl", data);
    const timespec times[2] = {{++second, 0}, {second, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  };
  write("{}\n");
  EXPECT_EQ(title(start), Title{});
  write(automatic("a"));
  EXPECT_EQ(title(start + 29s), Title{});  // that there is none is known as well
  EXPECT_EQ(title(start + 30s), "a");
  EXPECT_EQ(title(start + 1h), "a");
  write(automatic("b"));
  EXPECT_EQ(title(start + 1h), "b");
}

}  // namespace
}  // namespace ostrel
