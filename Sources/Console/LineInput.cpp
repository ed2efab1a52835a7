#include "LineInput.h"

#include <array>
#include <cerrno>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

#include "Runtime/Failure.h"

namespace ostrel::console {

struct LineInput::Receiver {
  std::function<void(std::string)> line;
  std::function<void()> ended;
};

LineInput::LineInput(MainLoop& loop, int fd, std::function<void(std::string)> line,
                     std::function<void()> ended)
    : loop_(loop),
      stop_(::eventfd(0, EFD_CLOEXEC)),
      receiver_(std::make_shared<Receiver>(std::move(line), std::move(ended))) {
  if (!stop_) throw Failure::ofErrno("Could not read the input", errno);
  thread_ = std::jthread([this, fd] { read(fd); });
}

LineInput::~LineInput() {
  ::eventfd_write(stop_.get(), 1);
  thread_.join();
  receiver_.reset();  // what is posted already finds nobody
}

void LineInput::read(int fd) {
  const std::weak_ptr<Receiver> receiver = receiver_;
  std::string buffer;
  std::array<char, 65536> block;
  for (;;) {
    pollfd ready[2] = {{fd, POLLIN, 0}, {stop_.get(), POLLIN, 0}};
    if (::poll(ready, 2, -1) < 0 && errno != EINTR) break;
    if (ready[1].revents != 0) return;
    if (ready[0].revents == 0) continue;
    const ssize_t count = ::read(fd, block.data(), block.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    buffer.append(block.data(), static_cast<std::size_t>(count));
    std::size_t begin = 0;
    for (std::size_t end; (end = buffer.find('\n', begin)) != std::string::npos; begin = end + 1) {
      loop_.post([receiver, line = buffer.substr(begin, end - begin)]() mutable {
        if (const auto live = receiver.lock()) live->line(std::move(line));
      });
    }
    buffer.erase(0, begin);
    if (buffer.size() > kLongest) break;
  }
  loop_.post([receiver] {
    if (const auto live = receiver.lock()) live->ended();
  });
}

}  // namespace ostrel::console
