// Whole programs, from exec to exit: the list of agents beside the tool that a shell script would start for
// the table alone.
#include <fcntl.h>
#include <filesystem>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>

#include "Figures.h"

namespace {

// Runs a program with its output thrown away; false when it failed.
bool runProgram(std::vector<std::string> words) {
  std::vector<char*> arguments;
  for (auto& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t pid = -1;
  const int error = ::posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) return false;
  int status = 0;
  return ::waitpid(pid, &status, 0) == pid && status == 0;
}

std::string besideThis(const char* name) {
  return (std::filesystem::read_symlink("/proc/self/exe").parent_path() / name).string();
}

void measure(benchmark::State& state, const std::vector<std::string>& words) {
  for (auto _ : state) {
    if (!runProgram(words)) {
      state.SkipWithError("the program failed");
      break;
    }
  }
  state.SetLabel(words.front());
}

void agents(benchmark::State& state) { measure(state, {besideThis("ostrelctl"), "agents", "--json"}); }
void ps(benchmark::State& state) {
  measure(state, {"ps", "-axo", "pid=,ppid=,uid=,stat=,tty=,lstart=,comm="});
}

BENCHMARK(agents)->Name("Program/agents")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ps)->Name("Program/ps")->Unit(benchmark::kMillisecond)->UseRealTime();

[[maybe_unused]] const bool figures = ostrel::bench::figure(
    "`ostrelctl agents`, exec to exit, to ps for the table", "Program/agents", "Program/ps", 1.0);

}  // namespace
