#include "Platform/Linux/SpawnedServers.h"

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Runtime/Failure.h"

namespace ostrel {

namespace {

class SpawnedServer final : public LaunchedServer {
 public:
  explicit SpawnedServer(pid_t pid) : pid_(pid) {}
  bool running() override {
    if (pid_ > 0 && ::waitpid(pid_, nullptr, WNOHANG) != 0) pid_ = -1;
    return pid_ > 0;
  }

 private:
  pid_t pid_;
};

std::vector<char*> pointers(std::vector<std::string>& words) {
  std::vector<char*> list;
  for (std::string& word : words) list.push_back(word.data());
  list.push_back(nullptr);
  return list;
}

}  // namespace

std::unique_ptr<LaunchedServer> SpawnedServers::launch(
    const std::string& executable, const std::vector<std::string>& arguments,
    const std::map<std::string, std::string>& environment) {
  std::vector<std::string> words = {executable};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<std::string> variables;
  for (const auto& [name, value] : environment) variables.push_back(name + "=" + value);

  posix_spawn_file_actions_t files;
  posix_spawnattr_t attributes;
  ::posix_spawn_file_actions_init(&files);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    ::posix_spawn_file_actions_addopen(&files, stream, "/dev/null", O_RDWR, 0);
  ::posix_spawnattr_init(&attributes);
  ::posix_spawnattr_setflags(&attributes,
                             POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  sigset_t signals;
  ::sigemptyset(&signals);
  ::posix_spawnattr_setsigmask(&attributes, &signals);
  ::sigfillset(&signals);
  ::posix_spawnattr_setsigdefault(&attributes, &signals);
  pid_t pid = -1;
  const int error = ::posix_spawn(&pid, executable.c_str(), &files, &attributes, pointers(words).data(),
                                  pointers(variables).data());
  ::posix_spawnattr_destroy(&attributes);
  ::posix_spawn_file_actions_destroy(&files);
  if (error != 0) throw Failure::ofErrno("Could not start " + executable, error);
  return std::make_unique<SpawnedServer>(pid);
}

}  // namespace ostrel
