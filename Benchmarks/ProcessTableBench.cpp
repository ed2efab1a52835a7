// The scan for agents on a machine with 2,000 sleeping processes and ten agents, beside the bare system calls
// that any reader of /proc makes, and beside `ps`.
#include <array>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <stdexcept>
#include <stdlib.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "Conversations/ConversationTitle.h"
#include "Discovery/ExternalAgents.h"
#include "Figures.h"
#include "Platform/Linux/DesktopHostApplications.h"
#include "Platform/Linux/NativeProcesses.h"
#include "Runtime/UniqueFd.h"

namespace {

namespace fs = std::filesystem;
using namespace ostrel;

constexpr int kSleepers = 2000;
constexpr int kAgents = 10;  // half of them Claude Code, half Codex

// The processes, and a home folder for the agents among them. Stands from the program's start to its end, so
// that every benchmark of a run sees the same machine.
class Machine {
 public:
  Machine() {
    std::string name = (fs::temp_directory_path() / "ostrel-bench-XXXXXX").string();
    if (!::mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
    home_ = name;
    environment.home = home_;
    environment.variables["PATH"] = "/usr/bin:/bin";
    for (int i = 0; i < kSleepers; ++i) {
      start([] {
        for (;;) ::pause();
      });
    }
    for (int i = 0; i < kAgents; ++i) startAgent(i, i % 2 == 0 ? "claude" : "codex");
  }
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;
  ~Machine() {
    for (const pid_t pid : children_) ::kill(pid, SIGKILL);
    for (const pid_t pid : children_) ::waitpid(pid, nullptr, 0);
    std::error_code error;
    fs::remove_all(home_, error);
  }

  Environment environment;

 private:
  template <class Work>
  pid_t start(Work work) {
    const pid_t pid = ::fork();
    if (pid < 0) throw std::runtime_error("no fork");
    if (pid == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ::setsid();
      work();
      ::_exit(1);
    }
    children_.push_back(pid);
    return pid;
  }

  // A sleeping program under an agent's name, on a terminal of its own, with files as that agent has them.
  void startAgent(int number, const std::string& name) {
    const fs::path program = home_ / "bin" / name;
    if (!fs::exists(program)) {
      fs::create_directories(program.parent_path());
      fs::copy_file("/bin/sleep", program);
    }
    const std::string id = fmt::format("00000000-0000-4000-8000-{:012}", number);
    const bool codex = name == "codex";
    const fs::path transcript =
        codex ? home_ / fmt::format(".codex/sessions/2026/11/22/rollout-2026-11-22-{}.jsonl", id)
              : home_ / fmt::format(".claude/projects/-work/{}.jsonl", id);
    write(
        transcript,
        fmt::format("{{\"type\":\"custom-title\",\"customTitle\":\"A title\",\"sessionId\":\"{}\"}}\n", id));
    UniqueFd master(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    ::grantpt(master.get());
    ::unlockpt(master.get());
    const std::string terminal = ::ptsname(master.get());
    masters_.push_back(std::move(master));
    const pid_t pid = start([&] {
      const int tty = ::open(terminal.c_str(), O_RDWR);
      ::ioctl(tty, TIOCSCTTY, 0);
      for (int fd = 0; fd < 3; ++fd) ::dup2(tty, fd);
      if (codex) ::open(transcript.c_str(), O_RDWR | O_APPEND);
      ::execl(program.c_str(), name.c_str(), "86400", nullptr);
    });
    const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    if (!codex) {
      write(
          home_ / fmt::format(".claude/sessions/{}.json", pid),
          fmt::format(
              R"({{"pid":{},"sessionId":"{}","cwd":"/work","startedAt":{},"version":"2.1.197","status":"idle"}})",
              pid, id, now.count()));
    }
  }
  static void write(const fs::path& file, const std::string& bytes) {
    fs::create_directories(file.parent_path());
    std::ofstream(file) << bytes;
  }

  fs::path home_;
  std::vector<pid_t> children_;
  std::vector<UniqueFd> masters_;
};

// Made at first need, so that other benchmarks are measured without its processes.
Machine& machine() {
  static Machine made;
  return made;
}

// What every reader has to do, and nothing more: list the pids, read each one's stat from a kept descriptor,
// and for programs with an agent's name read arguments, folder and open files.
class Walker {
 public:
  std::size_t walk() {
    list(root_.get(), [this](std::string_view name) {
      std::int32_t pid = 0;
      const auto [rest, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
      if (error == std::errc() && rest == name.data() + name.size()) pids_.push_back(pid);
    });
    for (const std::int32_t pid : pids_) read(pid);
    pids_.clear();
    return std::exchange(agents_, 0);
  }

 private:
  template <class Each>
  void list(int folder, Each each) {
    ::lseek(folder, 0, SEEK_SET);
    std::array<char, 32768> entries;
    for (ssize_t size = 0; (size = ::getdents64(folder, entries.data(), entries.size())) > 0;) {
      for (ssize_t offset = 0; offset < size;) {
        const auto* const entry = reinterpret_cast<const dirent64*>(entries.data() + offset);
        offset += entry->d_reclen;
        each(std::string_view(entry->d_name));
      }
    }
  }
  const char* path(std::int32_t pid, std::string_view name) {
    char* const end = std::to_chars(path_.data(), path_.data() + 12, pid).ptr;
    std::memcpy(end, name.data(), name.size());
    end[name.size()] = '\0';
    return path_.data();
  }
  std::string_view contents(const char* file) {
    const int fd = ::openat(root_.get(), file, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return {};
    const ssize_t size = ::read(fd, bytes_.data(), bytes_.size());
    ::close(fd);
    return size > 0 ? std::string_view(bytes_.data(), static_cast<std::size_t>(size)) : std::string_view();
  }
  void read(std::int32_t pid) {
    const auto stat = contents(path(pid, "/stat"));
    const auto open = stat.find('(');
    const auto close = stat.rfind(')');
    if (open == std::string_view::npos || close == std::string_view::npos) return;
    const auto name = stat.substr(open + 1, close - open - 1);
    if (name != "claude" && name != "codex" && name != "gemini" && name != "aider") return;
    ++agents_;
    benchmark::DoNotOptimize(contents(path(pid, "/cmdline")));
    benchmark::DoNotOptimize(::readlinkat(root_.get(), path(pid, "/cwd"), bytes_.data(), bytes_.size()));
    const int files = ::openat(root_.get(), path(pid, "/fd"), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (files < 0) return;
    list(files, [&](std::string_view file) {
      if (file[0] != '.')
        benchmark::DoNotOptimize(::readlinkat(files, file.data(), bytes_.data(), bytes_.size()));
    });
    ::close(files);
  }

  UniqueFd root_{::open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  std::vector<std::int32_t> pids_;
  std::array<char, 32> path_;
  std::array<char, 4096> bytes_;
  std::size_t agents_ = 0;
};

// What a scan uses besides the process table; kept, as in the resident program.
struct Surroundings {
  DesktopHostApplications hosts{DesktopHostApplications::dataFolders(machine().environment), "/usr/bin:/bin"};
  AgentTranscript transcripts{machine().environment};
  ConversationTitles titles{transcripts};
  ExternalAgents::Sources sources(Processes& processes) {
    return {processes, hosts, transcripts, titles, machine().environment};
  }
};

// All four see the same agents, or the figures mean nothing.
void check(benchmark::State& state, std::size_t agents) {
  if (agents < kAgents) state.SkipWithError(fmt::format("{} agents seen", agents).c_str());
}

void walker(benchmark::State& state) {
  machine();
  Walker walker;
  check(state, walker.walk());
  for (auto _ : state) benchmark::DoNotOptimize(walker.walk());
}

void fullScan(benchmark::State& state) {
  Surroundings surroundings;
  const auto scan = [&] {
    NativeProcesses processes;
    return ExternalAgents(surroundings.sources(processes)).scan({}).size();
  };
  check(state, scan());
  for (auto _ : state) benchmark::DoNotOptimize(scan());
}

void incrementalScan(benchmark::State& state) {
  Surroundings surroundings;
  TimePoint now{};
  NativeProcesses processes("/proc", [&] { return now; });
  ExternalAgents agents(surroundings.sources(processes));
  check(state, agents.scan({}).size());
  now += std::chrono::minutes(1);  // nobody is young any more
  for (int settled = 0; settled < 2; ++settled) check(state, agents.scan({}).size());
  for (auto _ : state) benchmark::DoNotOptimize(agents.scan({}));
}

void ps(benchmark::State& state) {
  machine();
  std::array<std::string, 3> words = {"ps", "-axo", "pid=,ppid=,uid=,stat=,tty=,lstart=,comm="};
  std::array<char*, 4> arguments = {words[0].data(), words[1].data(), words[2].data(), nullptr};
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  for (auto _ : state) {
    pid_t pid = -1;
    int status = -1;
    if (::posix_spawn(&pid, "/bin/ps", &actions, nullptr, arguments.data(), environ) != 0 ||
        ::waitpid(pid, &status, 0) != pid || status != 0) {
      state.SkipWithError("ps failed");
      break;
    }
  }
  ::posix_spawn_file_actions_destroy(&actions);
}

BENCHMARK(walker)->Name("ProcessTable/walker")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(fullScan)->Name("ProcessTable/fullScan")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(incrementalScan)
    ->Name("ProcessTable/incrementalScan")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(ps)->Name("ProcessTable/ps")->Unit(benchmark::kMillisecond)->UseRealTime();

[[maybe_unused]] const bool figures =
    bench::figure("first scan, 2,000 processes, to bare system calls", "ProcessTable/fullScan",
                  "ProcessTable/walker", 1.15) &&
    bench::figure("first scan, 2,000 processes, to ps", "ProcessTable/fullScan", "ProcessTable/ps", 0.20) &&
    bench::figure("later scan, 2,000 processes, to bare system calls", "ProcessTable/incrementalScan",
                  "ProcessTable/walker", 0.25);

}  // namespace
