#include <gtest/gtest.h>

#include "Runtime/Text.h"

namespace ostrel {
namespace {

using namespace std::literals;

TEST(Text, RepairsIllFormedSequencesOneReplacementEach) {
  const std::pair<std::string_view, std::string_view> table[] = {
      {"plain é 你 😀", "plain é 你 😀"},
      {"a\x80z", "a\uFFFDz"},
      {"\xE4\xBD", "\uFFFD"},                            // cut in mid-character
      {"\xE4\xBDx", "\uFFFDx"},                          // the following byte is kept
      {"\xC0\xAF", "\uFFFD\uFFFD"},                      // overlong
      {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},            // a surrogate
      {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},  // above U+10FFFF
  };
  for (const auto& [bytes, expected] : table) {
    EXPECT_EQ(text::repairUtf8(bytes), expected);
    EXPECT_EQ(text::isUtf8(bytes), bytes == expected);
  }
  EXPECT_EQ(text::repairUtf8("a\0b"sv), "a\0b"sv);
}

TEST(Text, TrimsWhiteSpaceOfAllScripts) {
  EXPECT_EQ(text::trim("\u00A0\u2003\u3000é\u2028\u0085"), "é");
  EXPECT_EQ(text::trim(" \u3000 "), "");
  EXPECT_EQ(text::trim("\x80 x \x80"), "\x80 x \x80");
  EXPECT_EQ(text::trimBlanks(" \tx\n "), "x\n");
}

TEST(Text, WordsKeepTheRestInTheLastField) {
  EXPECT_EQ(text::words("  a b\t\nc  "), (std::vector{"a"sv, "b"sv, "c"sv}));
  EXPECT_EQ(text::words("a b  c d ", 3), (std::vector{"a"sv, "b"sv, "c d "sv}));
  EXPECT_EQ(text::split("a,,b", ','), (std::vector{"a"sv, ""sv, "b"sv}));
  EXPECT_EQ(text::split("", ',').size(), 1u);
}

TEST(Text, CountsCharactersAsPeopleDo) {
  EXPECT_EQ(text::characterCount("e\u0301a"), 2u);
  EXPECT_EQ(text::characterCount("👩‍👩‍👧x"), 2u);
  EXPECT_EQ(text::characterCount("🇩🇪🇫🇷"), 2u);
  EXPECT_EQ(text::characterCount("a\r\nb"), 3u);
  EXPECT_EQ(text::characterCount("\x80\x80"), 2u);
  EXPECT_EQ(text::prefixCharacters("e\u0301👩‍👩‍👧x", 2), "e\u0301👩‍👩‍👧");
  EXPECT_EQ(text::prefixCharacters("ab", 5), "ab");
}

TEST(Text, FindsAndShowsControls) {
  EXPECT_TRUE(text::hasControlCharacter("a\x1b"));
  EXPECT_TRUE(text::hasControlCharacter("a\u0085"));
  EXPECT_TRUE(text::hasControlCharacter("\0"sv));
  EXPECT_FALSE(text::hasControlCharacter("é 😀 👩‍👧"));
  EXPECT_EQ(text::escapeControls("a\tb\nc\x1b[1m\u009Bé\x80"), "a\\tb\\nc\\x1b[1m\\x9bé\uFFFD");
}

TEST(Text, PathsNamesAndNumbers) {
  EXPECT_EQ(text::lastPathComponent("/usr/bin//"), "bin");
  EXPECT_EQ(text::lastPathComponent("claude"), "claude");
  EXPECT_EQ(text::lastPathComponent("/"), "/");
  EXPECT_EQ(text::capitalizedFirst("éa"), "Éa");
  EXPECT_EQ(text::lowercase("ÀB"), "àb");
  EXPECT_EQ(text::canonicalUuid("0F8FAD5B-D9CB-469F-A165-70867728950E"),
            "0f8fad5b-d9cb-469f-a165-70867728950e");
  EXPECT_FALSE(text::canonicalUuid("0f8fad5b-d9cb-469f-a165-70867728950g"));
  EXPECT_FALSE(text::canonicalUuid("0f8fad5b0d9cb-469f-a165-70867728950e"));
  EXPECT_EQ(text::parseInteger("+7"), 7);
  for (const auto bad : {"", "1x", " 1", "+-1", "9223372036854775808"})
    EXPECT_FALSE(text::parseInteger(bad)) << bad;
}

}  // namespace
}  // namespace ostrel
