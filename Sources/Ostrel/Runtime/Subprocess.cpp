#include "Runtime/Subprocess.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Runtime/Failure.h"
#include "Runtime/UniqueFd.h"

namespace ostrel {

namespace {

using namespace std::chrono_literals;

constexpr Duration kGrace = 500ms;
constexpr int kUnknownStatus = 255;

TimePoint now() { return std::chrono::steady_clock::now(); }

int millisecondsUntil(TimePoint end) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - now()).count();
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, 3'600'000));
}

// The running child. Ended and waited for when it goes.
class Child {
 public:
  Child(const std::string& executable, const std::vector<std::string>& arguments,
        const std::map<std::string, std::string>& environment, int output, SpawnErrors errors)
      : pid_(spawn(executable, arguments, environment, output, SpawnGroup::process, errors)) {
    pidfd_.reset(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() {
    if (!status_) end();
  }

  int exitDescriptor() const { return pidfd_.get(); }
  // Waits for it. Where the kernel has thrown its status away (somebody has the process ignore its children's
  // ends) nobody knows how it went, and that is no success.
  int status() {
    int raw = 0;
    while (!status_) {
      if (::waitpid(pid_, &raw, 0) == pid_) {
        status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
      } else if (errno != EINTR) {
        status_ = kUnknownStatus;
      }
    }
    return *status_;
  }
  int end() {
    ::kill(-pid_, SIGTERM);
    pollfd exited{.fd = pidfd_.get(), .events = POLLIN, .revents = 0};
    for (const TimePoint limit = now() + kGrace; pidfd_ && now() < limit;) {
      if (::poll(&exited, 1, millisecondsUntil(limit)) > 0) break;
    }
    ::kill(-pid_, SIGKILL);  // the group is named by the child, which is not waited for yet
    return status();
  }

 private:
  pid_t pid_ = -1;
  UniqueFd pidfd_;
  std::optional<int> status_;
};

// False at the end of the stream, and when nothing is there to be read at present.
bool readSome(int fd, std::string& into) {
  std::array<char, 65536> bytes;
  const ssize_t count = ::read(fd, bytes.data(), bytes.size());
  if (count > 0) into.append(bytes.data(), static_cast<std::size_t>(count));
  return count > 0 || (count < 0 && errno == EINTR);
}

}  // namespace

Subprocess::Result Subprocess::run(const std::string& executable, const std::vector<std::string>& arguments,
                                   const std::map<std::string, std::string>& environment, Duration limit,
                                   std::size_t outputLimit, std::stop_token stop, SpawnErrors errors) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw Failure::ofErrno("Could not start " + executable, errno);
  const UniqueFd output(ends[0]);
  UniqueFd input(ends[1]);
  ::fcntl(output.get(), F_SETFL, O_NONBLOCK);  // this end alone: the child's blocks, as programs expect
  const UniqueFd stopped(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!stopped) throw Failure::ofErrno("Could not start " + executable, errno);
  const std::stop_callback wake(stop, [&stopped] { ::eventfd_write(stopped.get(), 1); });

  const TimePoint end = now() + limit;
  Child child(executable, arguments, environment, input.get(), errors);
  input.reset();
  Result result;
  std::array<pollfd, 3> ready = {
      {{output.get(), POLLIN, 0}, {child.exitDescriptor(), POLLIN, 0}, {stopped.get(), POLLIN, 0}}};
  for (;;) {
    const int count = ::poll(ready.data(), ready.size(), millisecondsUntil(end));
    if (stop.stop_requested()) throw Cancelled();
    if (count == 0 && now() >= end) {
      result.end = End::timedOut;
      break;
    }
    if (count <= 0) continue;
    const bool exited = ready[1].revents != 0;
    // What the child wrote before it ended is in the pipe by now.
    bool more = ready[0].revents != 0 || exited;
    while (more && result.output.size() <= outputLimit) more = readSome(output.get(), result.output);
    if (result.output.size() > outputLimit) {
      result.end = End::outputTooLong;
      break;
    }
    if (exited) break;
    if ((ready[0].revents & POLLHUP) != 0 && (ready[0].revents & POLLIN) == 0)
      ready[0].fd = -1;  // closed early
    if (ready[0].fd < 0 && ready[1].fd < 0) break;
  }
  result.status = result.end == End::exited ? child.status() : child.end();
  return result;
}

}  // namespace ostrel
