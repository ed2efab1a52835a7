#include "Platform/Linux/DetachedProcess.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "Runtime/Failure.h"
#include "Runtime/Spawn.h"
#include "Runtime/UniqueFd.h"

namespace ostrel {

namespace {

// In the child of a program with threads: nothing here may allocate.
[[noreturn]] void report(int to, int error) {
  [[maybe_unused]] const auto written = ::write(to, &error, sizeof error);
  ::_exit(127);
}

[[noreturn]] void become(const ExecWords& words, int reportTo) {
  for (int signal = 1; signal < SIGRTMAX; ++signal) ::signal(signal, SIG_DFL);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  const int nothing = ::open("/dev/null", O_RDWR);
  for (int fd = 0; fd < 3; ++fd) {
    if (nothing < 0 || ::dup2(nothing, fd) < 0) report(reportTo, errno);
  }
  ::execve(words.path(), words.command(), words.environment());
  report(reportTo, errno);
}

}  // namespace

void DetachedProcess::start(std::vector<std::string> command,
                            const std::map<std::string, std::string>& environment) {
  const ExecWords words(std::move(command), environment);
  int ends[2];
  // Closed by the exec: that the pipe ends without a word means that the program runs.
  if (::pipe2(ends, O_CLOEXEC) != 0)
    throw Failure::ofErrno(std::string("Could not start ") + words.path(), errno);
  const UniqueFd reader(ends[0]);
  UniqueFd writer(ends[1]);
  const pid_t child = ::fork();
  if (child < 0) throw Failure::ofErrno(std::string("Could not start ") + words.path(), errno);
  if (child == 0) {
    ::setsid();
    // The second one is nobody's child once the first has gone.
    const pid_t grandchild = ::fork();
    if (grandchild < 0) report(writer.get(), errno);
    if (grandchild > 0) ::_exit(0);
    become(words, writer.get());
  }
  writer.reset();
  int error = 0;
  ssize_t count;
  do count = ::read(reader.get(), &error, sizeof error);
  while (count < 0 && errno == EINTR);
  while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) continue;
  if (count > 0) throw Failure::ofErrno(std::string("Could not start ") + words.path(), error);
}

}  // namespace ostrel
