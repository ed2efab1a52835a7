// The least that a permission hook does, without any care: the rival of the launcher in its hook role. Built
// static, as that is.
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

char buffer[4'000'000];

}  // namespace

int main() {
  std::size_t length = 0;
  for (ssize_t count; (count = ::read(0, buffer + length, sizeof buffer - length)) > 0;)
    length += static_cast<std::size_t>(count);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, std::getenv("OSTREL_PERMISSION_SOCKET"), sizeof address.sun_path - 1);
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return 1;
  if (length > 0 && buffer[length - 1] == '\n') --length;
  buffer[length++] = '\n';
  if (::send(fd, buffer, length, 0) != static_cast<ssize_t>(length)) return 1;
  length = 0;
  while (length == 0 || buffer[length - 1] != '\n') {
    const ssize_t count = ::recv(fd, buffer + length, sizeof buffer - length, 0);
    if (count <= 0) return 1;
    length += static_cast<std::size_t>(count);
  }
  return ::write(1, buffer, length) == static_cast<ssize_t>(length) ? 0 : 1;
}
