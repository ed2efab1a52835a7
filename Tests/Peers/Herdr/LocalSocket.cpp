#include "LocalSocket.h"

#include <algorithm>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "Runtime/Failure.h"

namespace ostrel::standin {

UniqueFd connectTo(const std::string& path) {
  UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), std::min(path.size(), sizeof address.sun_path - 1));
  if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    throw Failure("The session is not running.");
  return fd;
}

bool isRunning(const std::string& path) {
  try {
    connectTo(path);
    return true;
  } catch (const Failure&) {
    return false;
  }
}

std::string request(const std::string& path, std::string_view method, const Json& params) {
  const UniqueFd fd = connectTo(path);
  const std::string line = json::dump({{"id", "cli"}, {"method", method}, {"params", params}}) + "\n";
  [[maybe_unused]] const auto sent = ::send(fd.get(), line.data(), line.size(), MSG_NOSIGNAL);
  std::string answer;
  while (!answer.ends_with('\n')) {
    pollfd ready{.fd = fd.get(), .events = POLLIN, .revents = 0};
    if (::poll(&ready, 1, kLongestAnswer) <= 0) throw Failure("The session's server does not answer.");
    char bytes[16'384];
    const ssize_t count = ::recv(fd.get(), bytes, sizeof bytes, 0);
    if (count <= 0) break;
    answer.append(bytes, static_cast<std::size_t>(count));
  }
  return answer.substr(0, answer.find('\n'));
}

}  // namespace ostrel::standin
