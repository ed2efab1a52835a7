// Text as the product counts and compares it. All texts are UTF-8 in `std::string`; bytes from outside go
// through `repairUtf8` once, where they enter. Pure functions, any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ostrel::text {

// True when `bytes` is well-formed UTF-8.
bool isUtf8(std::string_view bytes);

// The text with every maximal ill-formed sequence replaced by U+FFFD, as the Unicode standard recommends.
std::string repairUtf8(std::string_view bytes);

// Without white space and newlines (Unicode's White_Space) at both ends; a view into `text`.
std::string_view trim(std::string_view text);

// Without blanks (space and tab) at both ends.
std::string_view trimBlanks(std::string_view text);

// The pieces between `separator`, empty ones included: "a,,b" gives three, "" gives one.
std::vector<std::string_view> split(std::string_view text, char separator);

// The words between runs of ASCII white space; at most `limit` fields, the last one holding the rest of the
// text as it stands (its leading white space removed). A limit of 0 means no limit.
std::vector<std::string_view> words(std::string_view text, std::size_t limit = 0);

// Length in user-perceived characters (extended grapheme clusters).
std::size_t characterCount(std::string_view text);

// The first `count` user-perceived characters; a view into `text`.
std::string_view prefixCharacters(std::string_view text, std::size_t count);

// True when the text holds a control character (general category Cc).
bool hasControlCharacter(std::string_view text);

// The text with its control characters shown as escapes ("\n", "\t", "\x1b") for one-line output on a
// terminal.
std::string escapeControls(std::string_view text);

// Lower case of the whole text, by Unicode's simple mapping.
std::string lowercase(std::string_view text);

// First character in upper case, the rest as it stands.
std::string capitalizedFirst(std::string_view text);

// The last component of a path: what follows the last "/", trailing slashes ignored; the whole text where
// there is none.
std::string_view lastPathComponent(std::string_view path);

// Without `suffix` at the end, where it stands there.
std::string_view dropSuffix(std::string_view text, std::string_view suffix);

// The canonical form of a UUID: lower case. Nothing when `text` is not 8-4-4-4-12 hexadecimal digits.
std::optional<std::string> canonicalUuid(std::string_view text);

std::string base64(std::string_view bytes);

// A whole decimal number with an optional sign, nothing else around it.
std::optional<long long> parseInteger(std::string_view text);

}  // namespace ostrel::text
