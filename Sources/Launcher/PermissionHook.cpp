#include "PermissionHook.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "Claude/PermissionSocket.h"
#include "Runtime/PeerUser.h"

namespace {

namespace permissionSocket = ostrel::permissionSocket;

// The question, later the answer. The server takes no line of more than four million bytes; there is room
// for one spread over many lines. Pages that aren't touched cost nothing.
struct Line {
  static constexpr std::size_t kRoom = 8u << 20;
  char bytes[kRoom + 1];  // and its newline
  std::size_t length;
};
Line line;

// Bytes read at once: what the processor's cache still holds when they are looked through.
constexpr std::size_t kPiece = 128u << 10;

char* find(char* from, const char* end, char wanted) {
  return static_cast<char*>(std::memchr(from, wanted, static_cast<std::size_t>(end - from)));
}

// Takes every `unwanted` byte out; the new end.
char* without(char unwanted, char* bytes, char* end) {
  char* kept = find(bytes, end, unwanted);
  if (!kept) return end;
  for (char* at = kept; at < end;) {
    ++at;
    char* next = find(at, end, unwanted);
    if (!next) next = end;
    std::memmove(kept, at, static_cast<std::size_t>(next - at));
    kept += next - at;
    at = next;
  }
  return kept;
}

// Reads all of standard input as one line, without its line breaks; false when it is too long for anybody.
bool readInput() {
  while (line.length < Line::kRoom) {
    char* const piece = line.bytes + line.length;
    const ssize_t count = ::read(STDIN_FILENO, piece, std::min(kPiece, Line::kRoom - line.length));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return true;
    line.length =
        static_cast<std::size_t>(without('\r', piece, without('\n', piece, piece + count)) - line.bytes);
  }
  return false;
}

bool connectTo(int fd, const permissionSocket::Path& path) {
  const sockaddr_un address = permissionSocket::address(path.text);
  for (;;) {
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return true;
    if (errno != EINTR) return false;
  }
}

bool sendLine(int fd) {
  line.bytes[line.length++] = '\n';
  for (;;) {
    const ssize_t sent = ::send(fd, line.bytes, line.length, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    return sent == static_cast<ssize_t>(line.length);
  }
}

// True when there is something to receive; false when nobody listens to our output any more. Claude Code
// ends without a word to its hooks; one that went on waiting would outlive it for good.
bool waitForReply(int fd) {
  for (;;) {
    pollfd waited[2] = {{fd, POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
    if (::poll(waited, 2, -1) < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (waited[0].revents != 0) return true;
    if (waited[1].revents != 0) return false;
  }
}

// The reply's first line; what came of it when the connection ended before its newline. False for nothing.
bool receiveLine(int fd) {
  line.length = 0;
  while (line.length < Line::kRoom) {
    if (!waitForReply(fd)) return false;
    char* const piece = line.bytes + line.length;
    const ssize_t count = ::recv(fd, piece, Line::kRoom - line.length, 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return line.length > 0;
    line.length += static_cast<std::size_t>(count);
    if (const char* newline = find(piece, piece + count, '\n')) {
      line.length = static_cast<std::size_t>(newline - line.bytes);
      return line.length > 0;
    }
  }
  return false;
}

void print() {
  std::signal(SIGPIPE, SIG_IGN);
  line.bytes[line.length++] = '\n';
  for (std::size_t written = 0; written < line.length;) {
    const ssize_t count = ::write(STDOUT_FILENO, line.bytes + written, line.length - written);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    written += static_cast<std::size_t>(count);
  }
}

}  // namespace

int runHook(bool fixture) {
  if (!readInput()) return 0;
  const auto path =
      permissionSocket::path(std::getenv(permissionSocket::kVariable), std::getenv("XDG_DATA_HOME"),
                             std::getenv("HOME"), fixture ? static_cast<unsigned>(::getpid()) : 0);
  if (!path.usable()) return 0;
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0 || !connectTo(fd, path)) return 0;
  if (!ostrel::isOurUser(fd)) {
    constexpr char kWords[] = "Ostrel: the permission socket belongs to another user. Nothing was sent.\n";
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, kWords, sizeof kWords - 1);
    return 0;
  }
  if (sendLine(fd) && receiveLine(fd)) print();
  return 0;
}
