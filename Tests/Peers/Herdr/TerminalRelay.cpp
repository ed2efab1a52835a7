#include "TerminalRelay.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "Runtime/UniqueFd.h"

namespace ostrel::standin {

namespace {

void writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(fd, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) throw StreamFailure("The stream broke.");
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

// What is there now; empty at the end.
std::string readSome(int fd) {
  std::string bytes(65'536, '\0');
  const ssize_t count = ::read(fd, bytes.data(), bytes.size());
  bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return bytes;
}

}  // namespace

void relayTerminal(const std::string& socket, const Json& attach) {
  const UniqueFd server(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, socket.data(), std::min(socket.size(), sizeof address.sun_path - 1));
  if (::connect(server.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    throw StreamFailure("The session is not running.");
  writeAll(server.get(),
           json::dump({{"id", "cli"}, {"method", "standin.attach"}, {"params", attach}}) + "\n");

  // The first line answers the request, everything behind it belongs to the stream.
  std::string first;
  while (!first.contains('\n')) {
    const std::string more = readSome(server.get());
    if (more.empty()) throw StreamFailure("The session's server is gone.");
    first += more;
  }
  const auto end = first.find('\n');
  const auto reply = json::parse(std::string_view(first).substr(0, end));
  if (const Json* error = reply ? json::member(*reply, "error") : nullptr)
    throw StreamFailure(json::string(*error, "message").value_or("refused"));
  writeAll(STDOUT_FILENO, std::string_view(first).substr(end + 1));

  pollfd ready[2] = {{STDIN_FILENO, POLLIN, 0}, {server.get(), POLLIN, 0}};
  for (;;) {
    if (::poll(ready, 2, -1) < 0) continue;
    if (ready[1].revents != 0) {
      const std::string bytes = readSome(server.get());
      if (bytes.empty()) return;
      writeAll(STDOUT_FILENO, bytes);
    }
    if (ready[0].revents != 0) {
      const std::string bytes = readSome(STDIN_FILENO);
      if (bytes.empty()) return;
      writeAll(server.get(), bytes);
    }
  }
}

}  // namespace ostrel::standin
