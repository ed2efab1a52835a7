#include <gtest/gtest.h>

#include "Conversations/AgentReadingStyle.h"

namespace ostrel {
namespace {

// Each block as its text, "| " before a monospaced one.
std::vector<std::string> blocks(std::string_view text) {
  std::vector<std::string> result;
  for (const auto& block : AgentReadingStyle::blocks(text)) {
    EXPECT_EQ(block.id, static_cast<int>(result.size()));
    result.push_back((block.monospaced ? "| " : "") + block.text);
  }
  return result;
}

TEST(AgentReadingStyle, Blocks) {
  using Blocks = std::vector<std::string>;
  const struct {
    std::string text;
    Blocks expected;
  } table[] = {
      {"", {}},
      {"\n \n\t\n", {}},
      {"a\nb\n\n\nc\n", {"a\nb", "c"}},
      {"  a \nb", {"  a \nb"}},
      {"a\n    b", {"| a\n    b"}},
      {"a\n\tb\n\n   c", {"| a\n\tb", "   c"}},
      {"a\n```cpp\nx\n\n❯\n─────────\n```\nb", {"a", "| ```cpp\nx\n\n❯\n─────────\n```", "b"}},
      {"a\n\n  ``` \nx\n\ny", {"a", "|   ``` \nx\n\ny"}},
      {"see ```x``` here", {"| see ```x``` here"}},
      {"────────", {"────────"}},
      {"─────────", {}},
      {"a\n ━_—━_—━_— \nb", {"a\nb"}},
      {"─────────x", {"─────────x"}},
      {"---------", {"---------"}},
      {"❯\n > \na\n❯ b", {"a\n❯ b"}},
  };
  for (const auto& row : table) EXPECT_EQ(blocks(row.text), row.expected) << row.text;
}

}  // namespace
}  // namespace ostrel
