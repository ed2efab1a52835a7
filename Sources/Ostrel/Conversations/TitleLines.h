// What single lines of a Claude Code transcript say about its title. Private to the sources of this folder.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Conversations/JsonLines.h"

namespace ostrel {

class TitleLines {
 public:
  explicit TitleLines(std::string_view sessionID) : sessionID_(sessionID) {}

  struct Title {
    bool custom = false;  // the user's own
    std::string text;
  };
  // The valid title that a line with `kTitleMarker` gives; where `customOnly`, automatic ones are passed
  // over. `readable` bytes may be read from the line's start.
  std::optional<Title> title(std::string_view line, std::size_t readable, bool customOnly = false);

  // The title that a line with `kPromptMarker` gives where it is what a person typed first.
  std::optional<std::string> prompt(std::string_view line, std::size_t readable);

 private:
  std::string sessionID_;
  LineParser parser_;
};

}  // namespace ostrel
