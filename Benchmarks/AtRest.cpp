// What `ostrelctl watch` costs while nothing happens, beside a bare loop that reads every process's stat each
// 5 seconds.
//   ostrel-at-rest [SECONDS]
#include <cctype>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <fmt/format.h>

namespace {

namespace fs = std::filesystem;

struct Cost {
  long long wakeUps = 0;           // voluntary context switches of all its threads
  double milliseconds = 0;         // processor time
  long long proportionalSize = 0;  // kB
};

std::string field(const fs::path& file, const std::string& name) {
  std::ifstream input(file);
  for (std::string line; std::getline(input, line);) {
    if (line.starts_with(name)) return line.substr(name.size());
  }
  return "0";
}

Cost costOf(pid_t pid) {
  Cost cost;
  const fs::path folder = fs::path("/proc") / std::to_string(pid);
  for (const auto& thread : fs::directory_iterator(folder / "task")) {
    cost.wakeUps += std::atoll(field(thread.path() / "status", "voluntary_ctxt_switches:").c_str());
    // Nanoseconds on the processor, nanoseconds waiting, turns.
    std::ifstream schedule(thread.path() / "schedstat");
    double nanoseconds = 0;
    schedule >> nanoseconds;
    cost.milliseconds += nanoseconds / 1e6;
  }
  cost.proportionalSize = std::atoll(field(folder / "smaps_rollup", "Pss:").c_str());
  return cost;
}

pid_t startWatch() {
  std::string program = (fs::read_symlink("/proc/self/exe").parent_path() / "ostrelctl").string();
  std::string word = "watch";
  char* arguments[] = {program.data(), word.data(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t pid = -1;
  if (::posix_spawn(&pid, program.c_str(), &actions, nullptr, arguments, environ) != 0) std::exit(1);
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

pid_t startBareLoop() {
  const pid_t pid = ::fork();
  if (pid != 0) return pid;
  const int proc = ::open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (;;) {
    DIR* folder = ::opendir("/proc");
    while (const dirent* entry = ::readdir(folder)) {
      if (!std::isdigit(static_cast<unsigned char>(entry->d_name[0]))) continue;
      const int fd = ::openat(proc, (std::string(entry->d_name) + "/stat").c_str(), O_RDONLY | O_CLOEXEC);
      char bytes[512];
      if (fd >= 0) {
        [[maybe_unused]] const ssize_t count = ::read(fd, bytes, sizeof bytes);
        ::close(fd);
      }
    }
    ::closedir(folder);
    std::this_thread::sleep_for(std::chrono::seconds(5));
  }
}

}  // namespace

int main(int argc, char** argv) {
  const int seconds = argc > 1 ? std::atoi(argv[1]) : 60;
  const pid_t watch = startWatch();
  const pid_t loop = startBareLoop();
  std::this_thread::sleep_for(std::chrono::seconds(12));  // past the first, complete scans
  const Cost watchBefore = costOf(watch);
  const Cost loopBefore = costOf(loop);
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  const Cost watchAfter = costOf(watch);
  const Cost loopAfter = costOf(loop);
  for (const pid_t pid : {watch, loop}) {
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
  }
  const double minutes = seconds / 60.0;
  fmt::print("{:<32} {:>14} {:>14} {:>9}\n", "at rest", "wake-ups/min", "CPU ms/min", "PSS MB");
  const auto row = [&](const char* name, const Cost& before, const Cost& after) {
    fmt::print("{:<32} {:>14.1f} {:>14.2f} {:>9.1f}\n", name,
               static_cast<double>(after.wakeUps - before.wakeUps) / minutes,
               (after.milliseconds - before.milliseconds) / minutes,
               static_cast<double>(after.proportionalSize) / 1024);
  };
  row("ostrelctl watch", watchBefore, watchAfter);
  row("bare loop over /proc, each 5 s", loopBefore, loopAfter);
  fmt::print("CPU ratio {:.2f}\n", (watchAfter.milliseconds - watchBefore.milliseconds) /
                                       (loopAfter.milliseconds - loopBefore.milliseconds));
  return 0;
}
