// What agents' programs write into a conversation in the person's name, told from what the person typed. The
// one place that knows it. Pure functions, any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ostrel::runtimeText {

// Whether a trimmed text of the role "user" was written by the program: word on the surroundings, output of
// commands of its own, reminders. Only a text that is such a notice from end to end counts.
bool isNotice(std::string_view text);

// What the person typed, where a trimmed text of the role "user" is the program's record of it: "/compact the
// plan", "!git log". Nothing for any other text.
std::optional<std::string> typed(std::string_view text);

// Takes the escape sequences of a terminal out, with what belongs to them alone (a colour, a link's address).
void dropEscapes(std::string& text);

}  // namespace ostrel::runtimeText
