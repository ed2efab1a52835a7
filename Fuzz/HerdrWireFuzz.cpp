// The wire's framing: whatever bytes come, in whatever pieces, the lines are those between line feeds, in
// order, until the peer hangs up.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <sys/socket.h>

#include "Herdr/HerdrSocket.h"
#include "Runtime/EpollLoop.h"
#include "Runtime/Failure.h"
#include "Runtime/Task.h"

namespace {

using namespace ostrel;

Task<void> takeAll(UniqueFd fd, std::string& lines, std::string& end, EpollLoop& loop) {
  HerdrSocket::Wire wire(std::move(fd));
  try {
    for (;;) lines += co_await wire.next(Duration::max()) + "\n";
  } catch (const Failure& failure) {
    end = failure.message();
  }
  loop.stop();
}

// One piece for each turn of the loop, so that the other end reads in between.
void sendPieces(EpollLoop& loop, UniqueFd& peer, std::string_view rest, std::size_t piece) {
  if (rest.empty()) return peer.reset();
  const std::string_view now = rest.substr(0, piece);
  if (::send(peer.get(), now.data(), now.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(now.size()))
    std::abort();
  rest.remove_prefix(now.size());
  loop.post([&loop, &peer, rest, piece] { sendPieces(loop, peer, rest, piece); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2 || size > 4096) return 0;
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) std::abort();
  UniqueFd peer(ends[0]);
  EpollLoop loop;
  std::string lines;
  std::string end;
  TaskScope tasks(loop);
  tasks.start(takeAll(UniqueFd(ends[1]), lines, end, loop));
  // The first byte is the size of the pieces; too many small ones would fill the socket.
  const std::string_view sent(reinterpret_cast<const char*>(data) + 1, size - 1);
  sendPieces(loop, peer, sent, data[0] + 32U);
  loop.run();
  const std::size_t last = sent.rfind('\n');
  if (lines != sent.substr(0, last == std::string_view::npos ? 0 : last + 1)) std::abort();
  if (end != "Herdr disconnected.") std::abort();
  return 0;
}
