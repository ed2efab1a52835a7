// What a message becomes on the screen: blocks whose keys differ, of which no word is lost but what reading
// leaves out, and paths that stand where they are said to stand.
#include <cstdint>
#include <set>

#include "App/ConversationBlocks.h"
#include "App/FilePaths.h"
#include "Require.h"
#include "Runtime/Text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace ostrel;
  if (size == 0) return 0;
  const std::string text =
      text::repairUtf8(std::string_view(reinterpret_cast<const char*>(bytes) + 1, size - 1));
  constexpr const char* kRoles[] = {"user", "assistant", "activity", "tool", "tool-running"};
  const std::string role = kRoles[bytes[0] % 5];
  const auto blocks = conversationBlocks({{"id", role, text, {}}, {"id", "assistant", text, {}}}, true);
  std::set<std::string> keys;
  for (const ConversationBlock& block : blocks) {
    require(keys.insert(block.key).second);
    require(text::isUtf8(block.text) && text::isUtf8(block.label));
    require(block.kind == ConversationBlock::Kind::tool || block.kind == ConversationBlock::Kind::activity ||
            block.text.size() <= 2 * text.size() + 4);
  }
  // A letter that stands in a message stands in its blocks, or in the word behind a fence.
  for (const char letter : {'a', 'Z', '7'}) {
    const bool said = text.contains(letter);
    bool shown = false;
    for (const ConversationBlock& block : blocks)
      shown = shown || block.text.contains(letter) || block.label.contains(letter);
    require(said == shown || role == "activity");
  }
  std::size_t end = 0;
  for (const FilePath& path : filePaths(text)) {
    require(path.begin >= end && path.length >= path.path.size());
    end = path.begin + path.length;
    require(end <= text.size() && text.compare(path.begin, path.path.size(), path.path) == 0);
    require(resolvePath(path.path, "/folder", "/home/me").is_absolute());
  }
  return 0;
}
