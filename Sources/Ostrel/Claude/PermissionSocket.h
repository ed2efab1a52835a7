// Where the permission hook and the resident program meet: the path of their Unix socket. One rule for both
// sides, so that they can't drift apart.
//
// The launcher includes this header and links nothing of the core: no heap, no exceptions, no streams here.
#pragma once

#include <cstddef>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>

namespace ostrel::permissionSocket {

// Names another socket, for both sides.
inline constexpr char kVariable[] = "OSTREL_PERMISSION_SOCKET";

// Bytes of a path with its NUL: what an address holds on every platform.
inline constexpr std::size_t kRoom = 104;

struct Path {
  char text[kRoom] = "";  // NUL-terminated
  std::size_t length = 0;
  bool fits = true;  // false: longer than an address can hold, and cut

  bool usable() const { return fits && length > 0; }
  void append(const char* piece) {
    const std::size_t count = std::strlen(piece);
    if (count >= kRoom - length) {
      fits = false;
      return;
    }
    std::memcpy(text + length, piece, count + 1);
    length += count;
  }
};

// `chosen`, `dataHome` and `home` are the values of kVariable, XDG_DATA_HOME and HOME, null where not set. A
// fixture run has a socket by its process id (otherwise 0), which disturbs no real instance. Not usable when
// it is too long or nothing says where it is.
inline Path path(const char* chosen, const char* dataHome, const char* home, unsigned fixturePid) {
  Path path;
  if (chosen) {
    path.append(chosen);
    return path;
  }
  if (dataHome && *dataHome) {
    path.append(dataHome);
  } else if (home && *home) {
    path.append(home);
    path.append("/.local/share");
  } else {
    return path;
  }
  path.append("/ostrel/permissions");
  if (fixturePid != 0) {
    char digits[16] = "";
    char* first = digits + sizeof digits - 1;
    for (; fixturePid != 0; fixturePid /= 10) *--first = static_cast<char>('0' + fixturePid % 10);
    path.append("-");
    path.append(first);
  }
  path.append(".sock");
  return path;
}

// Precondition: `path` with its NUL is at most kRoom bytes long.
inline sockaddr_un address(const char* path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path, std::strlen(path) + 1);
  return address;
}

}  // namespace ostrel::permissionSocket
