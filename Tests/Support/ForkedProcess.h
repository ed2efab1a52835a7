// A copy of the test program that does one thing, says that it is ready, and waits to be ended.
#pragma once

#include <csignal>
#include <fcntl.h>
#include <functional>
#include <stdexcept>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ostrel {

class ForkedProcess {
 public:
  // Returns when the child has run `work`. A child whose work is an exec is ready when that has happened.
  explicit ForkedProcess(const std::function<void()>& work = [] {}) {
    int ready[2];
    if (::pipe2(ready, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    pid_ = ::fork();
    if (pid_ < 0) throw std::runtime_error("no fork");
    if (pid_ == 0) {
      work();
      ::close(ready[1]);
      for (;;) ::pause();
    }
    ::close(ready[1]);
    char none;
    [[maybe_unused]] const auto end = ::read(ready[0], &none, 1);
    ::close(ready[0]);
  }
  ForkedProcess(const ForkedProcess&) = delete;
  ForkedProcess& operator=(const ForkedProcess&) = delete;
  ~ForkedProcess() {
    kill();
    ::waitpid(pid_, nullptr, 0);
  }

  pid_t pid() const { return pid_; }
  // Ends it and leaves it a zombie until the object goes.
  void kill() const {
    ::kill(pid_, SIGKILL);
    siginfo_t info;
    ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT);
  }

 private:
  pid_t pid_;
};

}  // namespace ostrel
