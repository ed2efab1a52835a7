// Cuts a file that is read in pieces into whole lines, in one buffer of about the size of a piece.
//
// Used by the readers of this folder: fill `room()`, tell `take()` how much came, use the lines before the
// next `room()`.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

namespace ostrel {

class LineBuffer {
 public:
  // Readable bytes behind every line that is handed out, as simdjson wants them.
  static constexpr std::size_t kPadding = 64;
  static constexpr std::size_t kPiece = 256 * 1024;

  // Forgets what it holds. `expected` bytes are to come: the buffer starts no larger than they need.
  void start(std::size_t expected);

  // A place for the next bytes; never empty. What `take` gave is gone with this call. The buffer grows beyond
  // a piece only for a line that is longer.
  std::span<char> room();

  // `count` bytes were put into `room()`. The whole lines that this completes, without the last one's
  // newline; nothing when no line ends in them.
  std::optional<std::string_view> take(std::size_t count);

  // The unfinished line at the end.
  std::string_view pending() const { return {data_.get() + begin_, end_ - begin_}; }

  // Readable bytes from `at`, a place in what `take` or `pending` gave.
  std::size_t readable(const char* at) const {
    return static_cast<std::size_t>(data_.get() + capacity_ - at);
  }

  // Gives back the memory where it is more than `bytes`. Forgets what it holds.
  void shrink(std::size_t bytes);

 private:
  std::unique_ptr<char[]> data_;
  std::size_t capacity_ = 0;  // padding included
  std::size_t begin_ = 0;     // of the unfinished line
  std::size_t end_ = 0;
};

}  // namespace ostrel
