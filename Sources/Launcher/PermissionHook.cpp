#include "PermissionHook.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "Claude/PermissionSocket.h"

namespace {

namespace permissionSocket = ostrel::permissionSocket;

constexpr std::size_t kLeast = 4096;  // bytes read at once

// Bytes that grow. The usual question and answer fit the program's own memory.
char usual[64 * 1024];
struct Buffer {
  char* bytes = usual;
  std::size_t length = 0;
  std::size_t room = sizeof usual;
  ~Buffer() {
    if (bytes != usual) std::free(bytes);
  }
};

bool makeRoom(Buffer& buffer) {
  if (buffer.room - buffer.length > kLeast) return true;
  const std::size_t room = buffer.room * 2;
  void* const grown = buffer.bytes == usual ? std::malloc(room) : std::realloc(buffer.bytes, room);
  if (!grown) return false;
  if (buffer.bytes == usual) std::memcpy(grown, usual, buffer.length);
  buffer.bytes = static_cast<char*>(grown);
  buffer.room = room;
  return true;
}

// One byte stays free for the newline that is put behind what was read.
std::size_t freeBytes(const Buffer& buffer) { return buffer.room - buffer.length - 1; }

bool readInput(Buffer& buffer) {
  for (;;) {
    if (!makeRoom(buffer)) return false;
    const ssize_t count = ::read(STDIN_FILENO, buffer.bytes + buffer.length, freeBytes(buffer));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return true;
    buffer.length += static_cast<std::size_t>(count);
  }
}

void removeAll(Buffer& buffer, char unwanted) {
  char* const end = buffer.bytes + buffer.length;
  char* kept = static_cast<char*>(std::memchr(buffer.bytes, unwanted, buffer.length));
  if (!kept) return;
  for (char* at = kept; at < end;) {
    ++at;
    char* next = static_cast<char*>(std::memchr(at, unwanted, static_cast<std::size_t>(end - at)));
    if (!next) next = end;
    std::memmove(kept, at, static_cast<std::size_t>(next - at));
    kept += next - at;
    at = next;
  }
  buffer.length = static_cast<std::size_t>(kept - buffer.bytes);
}

bool connectTo(int fd, const permissionSocket::Path& path) {
  const sockaddr_un address = permissionSocket::address(path.text);
  for (;;) {
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return true;
    if (errno != EINTR) return false;
  }
}

bool sendLine(int fd, Buffer& buffer) {
  buffer.bytes[buffer.length++] = '\n';
  for (;;) {
    const ssize_t sent = ::send(fd, buffer.bytes, buffer.length, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    return sent == static_cast<ssize_t>(buffer.length);
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

// The reply's first line; what came of it when the connection ended before its newline.
bool receiveLine(int fd, Buffer& buffer) {
  buffer.length = 0;
  for (;;) {
    if (!waitForReply(fd) || !makeRoom(buffer)) return false;
    char* const block = buffer.bytes + buffer.length;
    const ssize_t count = ::recv(fd, block, freeBytes(buffer), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return buffer.length > 0;
    buffer.length += static_cast<std::size_t>(count);
    if (const void* newline = std::memchr(block, '\n', static_cast<std::size_t>(count))) {
      buffer.length = static_cast<std::size_t>(static_cast<const char*>(newline) - buffer.bytes);
      return buffer.length > 0;
    }
  }
}

void print(Buffer& buffer) {
  std::signal(SIGPIPE, SIG_IGN);
  buffer.bytes[buffer.length++] = '\n';
  for (std::size_t written = 0; written < buffer.length;) {
    const ssize_t count = ::write(STDOUT_FILENO, buffer.bytes + written, buffer.length - written);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    written += static_cast<std::size_t>(count);
  }
}

}  // namespace

int runHook(bool fixture) {
  Buffer buffer;
  if (!readInput(buffer)) return 0;
  const auto path =
      permissionSocket::path(std::getenv(permissionSocket::kVariable), std::getenv("XDG_DATA_HOME"),
                             std::getenv("HOME"), fixture ? static_cast<unsigned>(::getpid()) : 0);
  if (!path.usable()) return 0;
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0 || !connectTo(fd, path)) return 0;
  removeAll(buffer, '\n');
  removeAll(buffer, '\r');
  if (sendLine(fd, buffer) && receiveLine(fd, buffer)) print(buffer);
  return 0;
}
