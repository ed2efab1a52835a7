#include "Conversations/TitleSearch.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <unistd.h>

#include "Conversations/LineBuffer.h"
#include "Conversations/LineScan.h"
#include "Conversations/TitleLines.h"

namespace ostrel {

namespace {

constexpr std::size_t npos = std::string_view::npos;

// What may begin in one block and end in the next.
constexpr std::size_t kOverlap = std::max(kTitleMarker.size(), kPromptMarker.size()) - 1;

struct ReadError {
  int number;
};

class Search {
 public:
  Search(int fd, std::uint64_t size, std::string_view sessionID, TitleWindow window)
      : fd_(fd),
        size_(size),
        start_(size - std::min(size, window.bytes)),
        block_(static_cast<std::size_t>(std::min<std::uint64_t>(window.blockBytes, size - start_))),
        bytes_(std::make_unique_for_overwrite<char[]>(capacity())),
        lines_(sessionID) {}

  std::optional<std::string> run() {
    while (end_ > start_ && !custom_) searchBlock();
    if (custom_) return custom_;
    if (automatic_) return automatic_;
    return promptFrom_ ? firstPrompt() : std::nullopt;
  }

 private:
  std::size_t capacity() const { return block_ + kOverlap + LineBuffer::kPadding; }
  void readAt(std::uint64_t offset, char* out, std::size_t count) const;
  void searchBlock();
  std::size_t lastTitle(std::uint64_t begin, std::size_t& limit);
  bool searchTitles(std::uint64_t begin, std::size_t count);
  void examine(std::string_view line, std::size_t readable);
  std::uint64_t lineStart(std::uint64_t offset) const;
  std::uint64_t lineEnd(std::uint64_t offset) const;
  std::optional<std::string> firstPrompt();

  const int fd_;
  const std::uint64_t size_;
  const std::uint64_t start_;      // of the window
  const std::size_t block_;        // bytes read at once
  std::unique_ptr<char[]> bytes_;  // a block, what overlaps from the one searched before, padding
  TitleLines lines_;
  std::uint64_t end_ = size_;  // of what is still to be searched
  bool atLineEnd_ = true;      // whether a line is known to end at `end_`
  std::size_t overlap_ = 0;    // bytes at the start of `bytes_` that continue what ends at `end_`
  std::optional<std::string> custom_, automatic_;
  std::optional<std::uint64_t> promptFrom_;  // no `kPromptMarker` in what has been searched is before this
};

void Search::readAt(std::uint64_t offset, char* out, std::size_t count) const {
  while (count > 0) {
    const ssize_t got = ::pread(fd_, out, count, static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) throw ReadError{got < 0 ? errno : EIO};
    out += got;
    offset += static_cast<std::uint64_t>(got);
    count -= static_cast<std::size_t>(got);
  }
}

void Search::searchBlock() {
  const std::size_t count = static_cast<std::size_t>(std::min<std::uint64_t>(block_, end_ - start_));
  const std::uint64_t begin = end_ - count;
  std::memmove(bytes_.get() + count, bytes_.get(), overlap_);
  readAt(begin, bytes_.get(), count);
  if (!searchTitles(begin, count)) return;
  end_ = begin;
  atLineEnd_ = false;
  overlap_ = std::min(kOverlap, count + overlap_);
}

// The last title marker that begins in the block and ends before `limit`. Prompts on the way there are noted.
std::size_t Search::lastTitle(std::uint64_t begin, std::size_t& limit) {
  for (;;) {
    // An automatic title beats every prompt, and where the first prompt is in a block can wait.
    const std::string_view rest(bytes_.get(), limit);
    if (automatic_ || promptFrom_ == begin) return findLastTitleMarker(rest);
    const std::size_t hit = findLastMarker(rest);
    if (hit == npos || rest.substr(hit).starts_with(kTitleMarker)) return hit;
    promptFrom_ = begin;
    limit = hit + kPromptMarker.size() - 1;
  }
}

// False when a line was found that begins before the block: it is done with, and the search goes on in front
// of it.
bool Search::searchTitles(std::uint64_t begin, std::size_t count) {
  const char* const bytes = bytes_.get();
  std::size_t limit = count + overlap_;
  while (!custom_) {
    const std::size_t hit = lastTitle(begin, limit);
    if (hit == npos) return true;
    const void* const before = ::memrchr(bytes, '\n', hit);
    const void* const after = hit < count ? std::memchr(bytes + hit, '\n', count - hit) : nullptr;
    if ((before || begin == start_) && (after || atLineEnd_)) {
      const char* const first = before ? static_cast<const char*>(before) + 1 : bytes;
      const char* const last = after ? static_cast<const char*>(after) : bytes + count;
      const std::string_view line(first, last);
      examine(line, static_cast<std::size_t>(bytes + capacity() - first));
      if (!automatic_ && findPromptMarker(line) != npos) promptFrom_ = begin;
      limit = static_cast<std::size_t>(first - bytes);
      continue;
    }
    const std::uint64_t lineBegin = lineStart(begin + hit);
    const std::size_t length = static_cast<std::size_t>(lineEnd(begin + hit) - lineBegin);
    const auto line = std::make_unique_for_overwrite<char[]>(length);
    readAt(lineBegin, line.get(), length);
    examine({line.get(), length}, length);
    if (findPromptMarker({line.get(), length}) != npos) promptFrom_ = std::min(begin, lineBegin);
    if (lineBegin >= begin) {
      limit = static_cast<std::size_t>(lineBegin - begin);
      continue;
    }
    end_ = lineBegin;
    atLineEnd_ = true;
    overlap_ = 0;
    return false;
  }
  return true;
}

void Search::examine(std::string_view line, std::size_t readable) {
  auto title = lines_.title(line, readable, automatic_.has_value());
  if (title) (title->custom ? custom_ : automatic_) = std::move(title->text);
}

constexpr std::size_t kStep = 4096;

std::uint64_t Search::lineStart(std::uint64_t offset) const {
  char step[kStep];
  while (offset > start_) {
    const std::size_t count = static_cast<std::size_t>(std::min<std::uint64_t>(kStep, offset - start_));
    readAt(offset - count, step, count);
    if (const void* newline = ::memrchr(step, '\n', count))
      return offset - count + static_cast<std::size_t>(static_cast<const char*>(newline) + 1 - step);
    offset -= count;
  }
  return start_;
}

std::uint64_t Search::lineEnd(std::uint64_t offset) const {
  char step[kStep];
  while (offset < size_) {
    const std::size_t count = static_cast<std::size_t>(std::min<std::uint64_t>(kStep, size_ - offset));
    readAt(offset, step, count);
    if (const void* newline = std::memchr(step, '\n', count))
      return offset + static_cast<std::size_t>(static_cast<const char*>(newline) - step);
    offset += count;
  }
  return size_;
}

std::optional<std::string> Search::firstPrompt() {
  const auto promptIn = [&](std::string_view line, std::size_t readable) {
    return findPromptMarker(line) == npos ? std::nullopt : lines_.prompt(line, readable);
  };
  LineBuffer buffer;
  std::uint64_t offset = lineStart(*promptFrom_);
  buffer.start(size_ - offset);
  while (offset < size_) {
    const auto room = buffer.room();
    const std::size_t count = static_cast<std::size_t>(std::min<std::uint64_t>(room.size(), size_ - offset));
    readAt(offset, room.data(), count);
    offset += count;
    auto lines = buffer.take(count);
    while (lines) {
      const auto end = lines->find('\n');
      if (auto title = promptIn(lines->substr(0, end), buffer.readable(lines->data()))) return title;
      if (end == npos) break;
      lines->remove_prefix(end + 1);
    }
  }
  return promptIn(buffer.pending(), buffer.pending().size());
}

}  // namespace

std::expected<std::optional<std::string>, int> titleOfFile(int fd, std::uint64_t size,
                                                           std::string_view sessionID, TitleWindow window) {
  try {
    return Search(fd, size, sessionID, window).run();
  } catch (const ReadError& error) {
    return std::unexpected(error.number);
  }
}

}  // namespace ostrel
