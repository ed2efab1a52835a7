#include "Support/ChildProcess.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

#include "Runtime/Spawn.h"

namespace ostrel {

namespace {

using Clock = std::chrono::steady_clock;

int millisecondsUntil(Clock::time_point end) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

// False at the end of the stream.
bool readSome(int fd, std::string& into) {
  char bytes[65536];
  const ssize_t count = ::read(fd, bytes, sizeof bytes);
  if (count <= 0) return false;
  into.append(bytes, static_cast<std::size_t>(count));
  return true;
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& command, const Variables& variables) {
  int out[2];
  int err[2];
  if (::pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  output_.reset(out[0]);
  UniqueFd outEnd(out[1]);
  if (::pipe2(err, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  errors_.reset(err[0]);
  UniqueFd errEnd(err[1]);

  const ExecWords words(command, variables);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_adddup2(&actions, outEnd.get(), 1);
  ::posix_spawn_file_actions_adddup2(&actions, errEnd.get(), 2);
  // Whoever runs the tests may ignore signals (nohup, a shell's background job): the child must not.
  posix_spawnattr_t attributes;
  ::posix_spawnattr_init(&attributes);
  ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  sigset_t signals;
  ::sigemptyset(&signals);
  ::posix_spawnattr_setsigmask(&attributes, &signals);
  ::sigfillset(&signals);
  ::posix_spawnattr_setsigdefault(&attributes, &signals);
  const int error =
      ::posix_spawnp(&pid_, words.path(), &actions, &attributes, words.command(), words.environment());
  ::posix_spawnattr_destroy(&attributes);
  ::posix_spawn_file_actions_destroy(&actions);
  if (error != 0) {
    pid_ = -1;
    throw std::runtime_error("could not start " + command.front() + ": " + std::strerror(error));
  }
}

ChildProcess::~ChildProcess() {
  if (pid_ < 0) return;
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

void ChildProcess::signal(int number) const {
  if (pid_ > 0) ::kill(pid_, number);
}

std::optional<std::string> ChildProcess::line(std::chrono::milliseconds limit) {
  const auto end = Clock::now() + limit;
  for (;;) {
    if (const auto newline = buffer_.find('\n'); newline != std::string::npos) {
      std::string result = buffer_.substr(0, newline);
      buffer_.erase(0, newline + 1);
      return result;
    }
    pollfd ready{output_.get(), POLLIN, 0};
    if (::poll(&ready, 1, millisecondsUntil(end)) <= 0 || !readSome(output_.get(), buffer_))
      return std::nullopt;
  }
}

ChildProcess::Finished ChildProcess::finish(std::chrono::milliseconds limit) {
  const auto end = Clock::now() + limit;
  Finished finished;
  finished.output = std::move(buffer_);
  pollfd ready[2] = {{output_.get(), POLLIN, 0}, {errors_.get(), POLLIN, 0}};
  std::string* const sinks[2] = {&finished.output, &finished.errors};
  while (ready[0].fd >= 0 || ready[1].fd >= 0) {
    if (::poll(ready, 2, millisecondsUntil(end)) <= 0) {
      ::kill(pid_, SIGKILL);
      break;
    }
    for (std::size_t i = 0; i < 2; ++i) {
      if (ready[i].revents != 0 && !readSome(ready[i].fd, *sinks[i])) ready[i].fd = -1;
    }
  }
  int status = 0;
  ::waitpid(pid_, &status, 0);
  pid_ = -1;
  finished.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return finished;
}

ChildProcess::Finished runCommand(const std::vector<std::string>& command,
                                  const ChildProcess::Variables& variables, std::chrono::milliseconds limit) {
  return ChildProcess(command, variables).finish(limit);
}

}  // namespace ostrel
