#include <gtest/gtest.h>

#include "App/ConversationBlocks.h"
#include "App/FilePaths.h"

namespace ostrel {
namespace {

using Kind = ConversationBlock::Kind;

AgentTranscriptMessage message(std::string id, std::string role, std::string text) {
  return {.id = std::move(id), .role = std::move(role), .text = std::move(text), .timestamp = {}};
}

TEST(ConversationBlocksTest, EachKindOfMessageIsSetInItsOwnWay) {
  const auto blocks = conversationBlocks(
      {message("1", "user", "Fix *it*\n\n    indented"),
       message("2", "assistant", "Done:\n\n```cpp title\nint x;\n\n  y();\n```\nand so on"),
       message("3", "tool-running", "Running · ls"),
       message("3", "activity", "<task><summary> Built </summary></task>")},
      true);
  ASSERT_EQ(blocks.size(), 7u);
  EXPECT_EQ(blocks[0].kind, Kind::words);
  EXPECT_TRUE(blocks[0].person && blocks[0].first && !blocks[0].last);
  EXPECT_EQ(blocks[1].kind, Kind::code);
  EXPECT_EQ(blocks[1].text, "    indented");
  EXPECT_TRUE(blocks[1].last);
  EXPECT_EQ(blocks[3].text, "int x;\n\n  y();");
  EXPECT_EQ(blocks[3].label, "cpp title");
  EXPECT_EQ(blocks[4].text, "and so on");
  EXPECT_TRUE(blocks[5].kind == Kind::tool && blocks[5].running);
  EXPECT_EQ(blocks[6].label, "Built");
  EXPECT_NE(blocks[5].key, blocks[6].key) << "two messages of one id";
  EXPECT_TRUE(conversationBlocks({message("3", "activity", "x")}, false).empty());

  // More text behind keeps the keys of what stands.
  const auto more = conversationBlocks({message("1", "user", "Fix *it*\n\n    indented\n\nnow")}, true);
  EXPECT_EQ(more[1].key, blocks[1].key);
  // A fence that is still being written.
  EXPECT_EQ(conversationBlocks({message("1", "assistant", "```\nhalf")}, true).front().text, "half");
}

TEST(ConversationBlocksTest, ListsKeepTogetherAndKeepTheirNumbers) {
  const auto whole = conversationBlocks({message("1", "assistant", "1. one\n\n2. two\n\nend")}, true);
  ASSERT_EQ(whole.size(), 2u);
  EXPECT_EQ(whole[0].text, "1. one\n\n2. two");
  const auto cut = conversationBlocks(
      {message("1", "assistant", "1. one\n\n```\nx\n```\n\n 2. two\n3. three\n\n12 apples. 3.5 of them")},
      true);
  ASSERT_EQ(cut.size(), 4u);
  EXPECT_EQ(cut[2].text, " 2\\. two  \n3\\. three  ");
  EXPECT_EQ(cut[3].text, "12 apples. 3.5 of them");
}

TEST(ConversationBlocksTest, FindsWordsWhateverTheirCase) {
  const auto blocks =
      conversationBlocks({message("1", "user", "Straße\n\nother"), message("2", "tool", "Ran · ÄRGER"),
                          message("3", "activity", "other")},
                         true);
  using Places = std::vector<std::size_t>;
  EXPECT_EQ(findInConversation(blocks, "ärger"), Places{2});
  EXPECT_EQ(findInConversation(blocks, "OTHER"), Places{1});
  EXPECT_EQ(findInConversation(blocks, " "), Places{});
  EXPECT_EQ(findInConversation(blocks, ".*"), Places{});
}

TEST(FilePathsTest, FindsWhatLooksLikeAPath) {
  const auto paths = [](std::string_view text) {
    std::string all;
    for (const FilePath& each : filePaths(text))
      all += each.path + "|" + std::string(text.substr(each.begin, each.length)) + " ";
    return all;
  };
  EXPECT_EQ(paths("See src/a.cpp:12:3, and /etc/hosts."), "src/a.cpp|src/a.cpp:12:3 /etc/hosts|/etc/hosts ");
  EXPECT_EQ(paths("(~/x/y) ./run ../up/größe.txt:7"),
            "~/x/y|~/x/y ./run|./run ../up/größe.txt|../up/größe.txt:7 ");
  EXPECT_EQ(paths("and/or /help https://a.b/c.html 1/2 // ... ~ a//b.c either/or. 3/4.5"), "");
  EXPECT_EQ(paths("/notes.txt a/b.c:"), "/notes.txt|/notes.txt a/b.c|a/b.c ");

  EXPECT_EQ(resolvePath("../b/c", "/home/me/a", "/home/me"), "/home/me/b/c");
  EXPECT_EQ(resolvePath("~/c", "/x", "/home/me"), "/home/me/c");
  EXPECT_EQ(resolvePath("b/c", "Local session", "/home/me"), "");
}

}  // namespace
}  // namespace ostrel
