#include "StandardOutput.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "Runtime/Failure.h"
#include "Runtime/UniqueFd.h"

namespace ostrel::console {

bool writeAll(int fd, std::string_view bytes, const std::stop_token& stop) {
  const UniqueFd stopped(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  const std::stop_callback wake(stop, [&] { ::eventfd_write(stopped.get(), 1); });
  while (!bytes.empty()) {
    pollfd ready[2] = {{fd, POLLOUT, 0}, {stopped.get(), POLLIN, 0}};
    if (::poll(ready, 2, -1) < 0 && errno != EINTR) return false;
    if (stop.stop_requested()) throw Cancelled();
    if (ready[0].revents == 0) continue;
    // A pipe that is ready takes so many without blocking, and no more is sure.
    const ssize_t count = ::write(fd, bytes.data(), std::min<std::size_t>(bytes.size(), PIPE_BUF));
    if (count >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EAGAIN && errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace ostrel::console
