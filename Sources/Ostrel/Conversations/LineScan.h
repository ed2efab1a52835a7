// Search for the two markers by which lines that may name a conversation are told from the others, 32 bytes
// at a time where the processor has AVX2 and 16 elsewhere.
//
// Used by the title search, which looks at megabytes for a few lines. glibc's `memmem` runs at a tenth of
// this speed. Pure functions, any thread.
#pragma once

#include <cstddef>
#include <string_view>

namespace ostrel {

// Lines without these bytes are not looked at. In a string within a string the quotes would be escaped, so
// tool output that quotes such lines does not match.
inline constexpr std::string_view kTitleMarker = "-title\"";
inline constexpr std::string_view kPromptMarker = "\"type\":\"user\"";

// Offset of the first occurrence in `data`; npos when there is none.
std::size_t findTitleMarker(std::string_view data);
std::size_t findPromptMarker(std::string_view data);

// Offset of the last occurrence: of the title's marker, or of either in one pass.
std::size_t findLastTitleMarker(std::string_view data);
std::size_t findLastMarker(std::string_view data);

}  // namespace ostrel
