#include "Conversations/LineBuffer.h"

#include <algorithm>
#include <cstring>

namespace ostrel {

void LineBuffer::start(std::size_t expected) {
  begin_ = end_ = 0;
  const std::size_t wanted = std::clamp(expected, std::size_t{4096} - kPadding, kPiece) + kPadding;
  if (capacity_ >= wanted) return;
  data_.reset();
  data_ = std::make_unique_for_overwrite<char[]>(wanted);
  capacity_ = wanted;
}

std::span<char> LineBuffer::room() {
  const std::size_t held = end_ - begin_;
  if (capacity_ == 0) start(kPiece);
  if (held > (capacity_ - kPadding) / 2) {
    const std::size_t larger = 2 * (capacity_ - kPadding) + kPadding;
    auto data = std::make_unique_for_overwrite<char[]>(larger);
    std::memcpy(data.get(), data_.get() + begin_, held);
    data_ = std::move(data);
    capacity_ = larger;
  } else if (begin_ > 0) {
    std::memmove(data_.get(), data_.get() + begin_, held);
  }
  begin_ = 0;
  end_ = held;
  return {data_.get() + held, capacity_ - kPadding - held};
}

std::optional<std::string_view> LineBuffer::take(std::size_t count) {
  const char* const fresh = data_.get() + end_;
  const char* const first = data_.get() + begin_;
  end_ += count;
  const void* const newline = ::memrchr(fresh, '\n', count);
  if (!newline) return std::nullopt;
  const char* const last = static_cast<const char*>(newline);
  begin_ = static_cast<std::size_t>(last + 1 - data_.get());
  return std::string_view(first, last);
}

void LineBuffer::shrink(std::size_t bytes) {
  begin_ = end_ = 0;
  if (capacity_ <= bytes) return;
  data_.reset();
  capacity_ = 0;
}

}  // namespace ostrel
