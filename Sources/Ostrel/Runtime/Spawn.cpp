#include "Runtime/Spawn.h"

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>
#include <utility>

#include "Runtime/Failure.h"

namespace ostrel {

namespace {

std::vector<char*> pointers(std::vector<std::string>& words) {
  std::vector<char*> list;
  for (std::string& word : words) list.push_back(word.data());
  list.push_back(nullptr);
  return list;
}

}  // namespace

ExecWords::ExecWords(std::vector<std::string> command, const std::map<std::string, std::string>& environment)
    : command_(std::move(command)) {
  for (const auto& [name, value] : environment) environment_.push_back(name + "=" + value);
  commandPointers_ = pointers(command_);
  environmentPointers_ = pointers(environment_);
}

pid_t spawn(const std::string& executable, const std::vector<std::string>& arguments,
            const std::map<std::string, std::string>& environment, int output, SpawnGroup group,
            SpawnErrors errors) {
  std::vector<std::string> command = {executable};
  command.insert(command.end(), arguments.begin(), arguments.end());
  const ExecWords words(std::move(command), environment);

  posix_spawn_file_actions_t files;
  posix_spawnattr_t attributes;
  ::posix_spawn_file_actions_init(&files);
  ::posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
    if (output < 0 || (stream == STDERR_FILENO && errors == SpawnErrors::dropped))
      ::posix_spawn_file_actions_addopen(&files, stream, "/dev/null", O_WRONLY, 0);
    else
      ::posix_spawn_file_actions_adddup2(&files, output, stream);
  }
  ::posix_spawnattr_init(&attributes);
  const int own = group == SpawnGroup::session ? POSIX_SPAWN_SETSID : POSIX_SPAWN_SETPGROUP;
  ::posix_spawnattr_setflags(&attributes,
                             static_cast<short>(own | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF));
  sigset_t signals;
  ::sigemptyset(&signals);
  ::posix_spawnattr_setsigmask(&attributes, &signals);
  ::sigfillset(&signals);
  ::posix_spawnattr_setsigdefault(&attributes, &signals);
  pid_t pid = -1;
  const int error =
      ::posix_spawn(&pid, words.path(), &files, &attributes, words.command(), words.environment());
  ::posix_spawnattr_destroy(&attributes);
  ::posix_spawn_file_actions_destroy(&files);
  if (error != 0) throw Failure::ofErrno("Could not start " + executable, error);
  return pid;
}

void resetSignals() {
  ::signal(SIGPIPE, SIG_IGN);
  ::signal(SIGCHLD, SIG_DFL);
  sigset_t children;
  ::sigemptyset(&children);
  ::sigaddset(&children, SIGCHLD);
  ::pthread_sigmask(SIG_UNBLOCK, &children, nullptr);
}

}  // namespace ostrel
