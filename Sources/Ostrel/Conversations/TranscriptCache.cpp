#include "Conversations/TranscriptCache.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

#include "Runtime/Failure.h"
#include "Runtime/UniqueFd.h"

namespace ostrel {

namespace {

constexpr std::string_view kUnreadable = "The conversation file could not be read";

void checkCancelled(const std::stop_token& stop) {
  if (stop.stop_requested()) throw Cancelled();
}

// Bytes read; 0 at the end of the file.
std::size_t readAt(int fd, char* out, std::size_t count, std::uint64_t offset) {
  for (;;) {
    const ssize_t got = ::pread(fd, out, count, static_cast<off_t>(offset));
    if (got >= 0) return static_cast<std::size_t>(got);
    if (errno != EINTR) throw Failure::ofErrno(kUnreadable, errno);
  }
}

}  // namespace

TranscriptCache::TranscriptCache(AgentTranscript transcripts) : transcripts_(std::move(transcripts)) {}

const AgentTranscript::ParseState& TranscriptCache::load(const std::optional<std::string>& reference,
                                                         const std::optional<std::string>& kind,
                                                         std::string_view provider, std::stop_token stop) {
  checkCancelled(stop);
  std::string key(provider);
  key.append(1, '\x1F').append(kind.value_or("")).append(1, '\x1F').append(reference.value_or(""));
  if (const auto known = paths_.find(key); known != paths_.end())
    if (const auto stamp = stampOf(known->second)) return look(known->second, *stamp, stop);
  const std::string path = transcripts_.resolve(reference, kind, provider).string();
  paths_.insert_or_assign(key, path);
  if (paths_.size() > kPaths) paths_ = {{key, path}};
  return read(path, stop);
}

const AgentTranscript::ParseState& TranscriptCache::read(const std::filesystem::path& path,
                                                         std::stop_token stop) {
  checkCancelled(stop);
  const auto stamp = stampOf(path.native());
  if (!stamp) throw Failure::ofErrno(kUnreadable, errno);
  return look(path.native(), *stamp, stop);
}

std::optional<TranscriptCache::Stamp> TranscriptCache::stampOf(const std::string& path) {
  struct stat info;
  if (::stat(path.c_str(), &info) != 0) return std::nullopt;
  return stampOf(info);
}

TranscriptCache::Stamp TranscriptCache::stampOf(const struct stat& info) {
  return {static_cast<std::uint64_t>(info.st_size),
          std::int64_t{info.st_mtim.tv_sec} * 1'000'000'000 + info.st_mtim.tv_nsec, info.st_ino};
}

TranscriptCache::Entry& TranscriptCache::entryFor(const std::string& path) {
  auto entry =
      std::find_if(entries_.rbegin(), entries_.rend(), [&](const Entry& e) { return e.path == path; });
  if (entry == entries_.rend()) {
    entries_.emplace_back().path = path;
  } else {
    entries_.splice(entries_.end(), entries_, std::prev(entry.base()));
  }
  while (entries_.size() > kEntries) entries_.pop_front();
  return entries_.back();
}

const AgentTranscript::ParseState& TranscriptCache::look(const std::string& path, const Stamp& stamp,
                                                         const std::stop_token& stop) {
  Entry& entry = entryFor(path);
  if (entry.stamp == stamp) return entry.state;

  // Nonblocking, so that a named pipe put in the file's place can't hang the reader.
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat info;
  if (!fd || ::fstat(fd.get(), &info) != 0) throw Failure::ofErrno(kUnreadable, errno);
  if (!S_ISREG(info.st_mode)) throw Failure::ofErrno(kUnreadable, S_ISDIR(info.st_mode) ? EISDIR : EINVAL);

  // Of the file that is open now, and of before the reading: what comes meanwhile is seen by the next look.
  const Stamp current = stampOf(info);
  const bool continues = entry.inode == current.inode && current.size >= entry.consumed &&
                         current.size - entry.consumed <= kTailWindow;
  entry.stamp.reset();
  if (!continues) startAnew(fd.get(), current, entry, stop);
  readLines(fd.get(), current.size, entry, stop);
  entry.stamp = current;
  constexpr std::size_t kBufferKept = 64 * 1024;
  buffer_.shrink(kBufferKept);
  parser_.trimMemory();
  return entry.state;
}

void TranscriptCache::startAnew(int fd, const Stamp& stamp, Entry& entry, const std::stop_token& stop) {
  entry.state = {};
  entry.inode.reset();
  entry.consumed = 0;
  if (stamp.size > kTailWindow) {
    // The session's own line stands at the start of the file.
    buffer_.start(kHeadWindow);
    const std::size_t length = readAt(fd, buffer_.room().data(), kHeadWindow, 0);
    parser_.details({buffer_.room().data(), length}, length, entry.state.details);

    // The window begins in mid-line: its first line is the one behind the first newline.
    entry.consumed = stamp.size - kTailWindow;
    constexpr std::size_t kPiece = 16 * 1024;
    for (std::uint64_t offset = entry.consumed; offset < stamp.size;) {
      checkCancelled(stop);
      char* const piece = buffer_.room().data();
      const std::size_t got = readAt(fd, piece, std::min<std::uint64_t>(kPiece, stamp.size - offset), offset);
      const void* const newline = std::memchr(piece, '\n', got);
      if (newline) {
        entry.consumed = offset + static_cast<std::size_t>(static_cast<const char*>(newline) + 1 - piece);
        break;
      }
      if (got == 0) break;
      offset += got;
    }
  }
  entry.inode = stamp.inode;
}

void TranscriptCache::readLines(int fd, std::uint64_t end, Entry& entry, const std::stop_token& stop) {
  buffer_.start(end - entry.consumed);
  for (std::uint64_t offset = entry.consumed; offset < end;) {
    checkCancelled(stop);
    const auto room = buffer_.room();
    const std::size_t got =
        readAt(fd, room.data(), std::min<std::uint64_t>(room.size(), end - offset), offset);
    if (got == 0) break;
    offset += got;
    const auto lines = buffer_.take(got);
    if (!lines) continue;
    parser_.consume(*lines, buffer_.readable(lines->data()), entry.state);
    entry.consumed = offset - buffer_.pending().size();
  }
}

}  // namespace ostrel
