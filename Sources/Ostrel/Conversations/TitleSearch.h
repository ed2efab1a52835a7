// The title of a transcript file, searched from its end: titles are written again and again, so the last one
// is near.
//
// Behind `ConversationTitles`. Gives what `conversationTitle` gives for the file's last 2,000,000 bytes,
// while it reads no more of them than it takes to find the user's own title, in one buffer of 128 KiB.
#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>

namespace ostrel {

struct TitleWindow {
  std::uint64_t bytes = 2'000'000;      // of the end of the file
  std::size_t blockBytes = 128 * 1024;  // read at once; at least 1
};

// `fd` is open for reading and `size` bytes long. Otherwise the error number; EIO when the file has become
// shorter.
std::expected<std::optional<std::string>, int> titleOfFile(int fd, std::uint64_t size,
                                                           std::string_view sessionID,
                                                           TitleWindow window = {});

}  // namespace ostrel
