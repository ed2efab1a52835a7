// Text from outside as it may be put before a person who decides by it: nothing in it hides, moves or turns
// round what will be run. For commands, paths, titles and changes of files; not for the words of a
// conversation, where such characters are at home. Pure, any thread.
#pragma once

#include <string>
#include <string_view>

namespace ostrel::text {

// `text`, UTF-8, with each character that is not seen or that moves others put as its code in angle brackets
// ("⟨U+202E⟩"): controls but for newline and tab, bidirectional marks, blanks without width, tags, fillers.
// What joins and colours pictures stays beside a picture.
std::string marked(std::string_view text);

// `marked`, and each line that holds letters of a script that runs from right to left in an override, so that
// a view draws its characters in the order in which they stand. `unordered` takes the override out again, of
// what a person copies, say.
std::string inOrder(std::string_view text);
std::string unordered(std::string_view text);

}  // namespace ostrel::text
