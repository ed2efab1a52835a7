#include "Platform/Linux/DetachedProcess.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Runtime/Failure.h"
#include "Runtime/UniqueFd.h"

namespace ostrel {

namespace {

std::vector<char*> pointers(std::vector<std::string>& words) {
  std::vector<char*> list;
  for (std::string& word : words) list.push_back(word.data());
  list.push_back(nullptr);
  return list;
}

// In the child of a program with threads: nothing here may allocate.
[[noreturn]] void report(int to, int error) {
  [[maybe_unused]] const auto written = ::write(to, &error, sizeof error);
  ::_exit(127);
}

[[noreturn]] void become(char* const* command, char* const* environment, int reportTo) {
  for (int signal = 1; signal < SIGRTMAX; ++signal) ::signal(signal, SIG_DFL);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  const int nothing = ::open("/dev/null", O_RDWR);
  for (int fd = 0; fd < 3; ++fd) {
    if (nothing < 0 || ::dup2(nothing, fd) < 0) report(reportTo, errno);
  }
  ::execve(command[0], command, environment);
  report(reportTo, errno);
}

}  // namespace

void DetachedProcess::start(std::vector<std::string> command,
                            const std::map<std::string, std::string>& environment) {
  std::vector<std::string> variables;
  for (const auto& [name, value] : environment) variables.push_back(name + "=" + value);
  const std::vector<char*> words = pointers(command);
  const std::vector<char*> values = pointers(variables);
  int ends[2];
  // Closed by the exec: that the pipe ends without a word means that the program runs.
  if (::pipe2(ends, O_CLOEXEC) != 0) throw Failure::ofErrno("Could not start " + command[0], errno);
  const UniqueFd reader(ends[0]);
  UniqueFd writer(ends[1]);
  const pid_t child = ::fork();
  if (child < 0) throw Failure::ofErrno("Could not start " + command[0], errno);
  if (child == 0) {
    ::setsid();
    // The second one is nobody's child once the first has gone.
    const pid_t grandchild = ::fork();
    if (grandchild < 0) report(writer.get(), errno);
    if (grandchild > 0) ::_exit(0);
    become(words.data(), values.data(), writer.get());
  }
  writer.reset();
  int error = 0;
  ssize_t count;
  do count = ::read(reader.get(), &error, sizeof error);
  while (count < 0 && errno == EINTR);
  while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) continue;
  if (count > 0) throw Failure::ofErrno("Could not start " + command[0], error);
}

}  // namespace ostrel
