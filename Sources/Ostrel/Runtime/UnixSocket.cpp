#include "Runtime/UnixSocket.h"

#include <cstring>
#include <sys/socket.h>

#include "Runtime/PeerUser.h"

namespace ostrel::unixSocket {

UniqueFd make(Mode mode) {
  const int flags = SOCK_STREAM | SOCK_CLOEXEC | (mode == Mode::nonBlocking ? SOCK_NONBLOCK : 0);
  return UniqueFd(::socket(AF_UNIX, flags, 0));
}

std::optional<sockaddr_un> address(const std::string& path) {
  if (path.empty() || path.size() > kLongestPath) return std::nullopt;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

std::optional<Refusal> connect(const UniqueFd& fd, const std::string& path) {
  const auto at = address(path);
  if (!at) return Refusal::path;
  if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&*at), sizeof *at) != 0)
    return Refusal::unreachable;
  if (!isOurUser(fd.get())) return Refusal::stranger;
  return std::nullopt;
}

}  // namespace ostrel::unixSocket
