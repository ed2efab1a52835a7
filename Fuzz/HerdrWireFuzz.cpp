// The wire's framing: whatever bytes come, in whatever pieces, the lines are those between line feeds, in
// order, until the peer hangs up.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <sys/socket.h>
#include <thread>
#include <vector>

#include "Herdr/HerdrSocket.h"
#include "Runtime/Failure.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ostrel;
  if (size < 2 || size > 4096) return 0;
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) std::abort();
  UniqueFd peer(ends[0]);
  HerdrSocket::Wire wire{UniqueFd(ends[1])};

  // The first byte is the size of the pieces; too many small ones would fill the socket. Between two of them
  // as many lines are taken as have come whole.
  const std::size_t piece = data[0] + 32U;
  std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  std::string_view expected = rest;
  const auto expectLine = [&] {
    const std::size_t end = expected.find('\n');
    if (end == std::string_view::npos || wire.next(std::nullopt, {}) != expected.substr(0, end)) std::abort();
    expected.remove_prefix(end + 1);
  };
  while (!rest.empty()) {
    const std::string_view now = rest.substr(0, piece);
    if (::send(peer.get(), now.data(), now.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(now.size()))
      std::abort();
    rest.remove_prefix(now.size());
    for (auto lines = std::ranges::count(now, '\n'); lines > 0; --lines) expectLine();
  }
  peer.reset();
  try {
    wire.next(std::nullopt, {});
    std::abort();
  } catch (const Failure& failure) {
    if (failure.message() != "Herdr disconnected.") std::abort();
  }
  return 0;
}
