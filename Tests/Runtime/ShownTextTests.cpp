#include <gtest/gtest.h>

#include "Runtime/ShownText.h"

namespace ostrel::text {
namespace {

TEST(ShownTextTest, WhatHidesOrMovesIsShownAsItsCode) {
  const std::pair<const char*, const char*> cases[] = {
      {"ls -la\n\ttabs, é and 漢字 stay", "ls -la\n\ttabs, é and 漢字 stay"},
      {"rm \u202Etxt.exe", "rm ⟨U+202E⟩txt.exe"},
      {"a\u2066b\u2069\u200E\u061C", "a⟨U+2066⟩b⟨U+2069⟩⟨U+200E⟩⟨U+061C⟩"},
      {"sa\u200Bfe\u00ADly\u2060\uFEFF", "sa⟨U+200B⟩fe⟨U+00AD⟩ly⟨U+2060⟩⟨U+FEFF⟩"},
      {"clear\x1b[2K\r\x07\u0085", "clear⟨U+001B⟩[2K⟨U+000D⟩⟨U+0007⟩⟨U+0085⟩"},
      {"tag \U000E0041, filler \u3164, braille \u2800", "tag ⟨U+E0041⟩, filler ⟨U+3164⟩, braille ⟨U+2800⟩"},
      {"line\u2028break", "line⟨U+2028⟩break"},
      // A family is one picture; the same joiner between letters hides.
      {"\U0001F468\u200D\U0001F469\u200D\U0001F467 \u2764\uFE0F",
       "\U0001F468\u200D\U0001F469\u200D\U0001F467 \u2764\uFE0F"},
      {"a\u200Db\uFE0F", "a⟨U+200D⟩b⟨U+FE0F⟩"},
      {"bad \xC3( end", "bad \uFFFD( end"},
  };
  for (const auto& [given, shown] : cases) EXPECT_EQ(marked(given), shown);
}

TEST(ShownTextTest, LinesThatWouldTurnRoundAreHeldInOrder) {
  const std::string command = "rm א / ב\nls";
  EXPECT_EQ(inOrder(command), "\u202Drm א / ב\u202C\nls");
  EXPECT_EQ(unordered(inOrder(command)), command);
  EXPECT_EQ(inOrder("\n\nplain\n"), "\n\nplain\n");
  EXPECT_EQ(inOrder("\u202Cא"), "\u202D⟨U+202C⟩א\u202C") << "nothing from outside ends the override";
  EXPECT_EQ(inOrder(""), "");
}

}  // namespace
}  // namespace ostrel::text
