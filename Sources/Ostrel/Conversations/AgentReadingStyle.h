// Breaks text from a conversation or a terminal into blocks that a view sets in a reading font, or in a
// fixed-width font where the layout matters. A pure function, any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ostrel {

class AgentReadingStyle {
 public:
  struct Block {
    int id = 0;               // position among the blocks, from 0
    std::string text;         // lines joined by a newline
    bool monospaced = false;  // fenced code, or a line that is indented by four blanks or a tab
    bool operator==(const Block&) const = default;
  };

  // Blocks end at empty lines and at code fences. Drawn rules and bare prompt markers outside fences are left
  // out.
  static std::vector<Block> blocks(std::string_view text);
};

}  // namespace ostrel
