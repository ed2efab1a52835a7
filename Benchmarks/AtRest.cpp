// What `ostrelctl watch` costs while nothing happens, beside a bare loop that reads every process's stat each
// 5 seconds; and where there is a display, what the desktop program costs with its handle alone, and with its
// list open.
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
#include <vector>

#include <fmt/format.h>
#ifdef OSTREL_DESKTOP
#include <xcb/xcb.h>
#endif

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

pid_t start(const fs::path& path, std::string word) {
  std::string program = (fs::read_symlink("/proc/self/exe").parent_path() / path).string();
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

#ifdef OSTREL_DESKTOP
// The pointer goes to the middle of the right edge, where the handle is, and rests after some small steps.
void pointAtHandle() {
  xcb_connection_t* const display = xcb_connect(nullptr, nullptr);
  const xcb_screen_t* const screen = xcb_setup_roots_iterator(xcb_get_setup(display)).data;
  const auto go = [&](int x) {
    xcb_warp_pointer(display, XCB_NONE, screen->root, 0, 0, 0, 0, static_cast<std::int16_t>(x),
                     static_cast<std::int16_t>(screen->height_in_pixels / 2));
    xcb_flush(display);
  };
  for (int step = 0; step < 20; ++step) {
    go(screen->width_in_pixels - 12 - step % 2);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  xcb_disconnect(display);
}
#endif

struct Row {
  std::string name;
  pid_t pid;
  Cost before{}, after{};
};

// What each costs in `seconds`.
void measure(std::vector<Row>& rows, int seconds) {
  for (Row& row : rows) row.before = costOf(row.pid);
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  for (Row& row : rows) row.after = costOf(row.pid);
  for (const Row& row : rows) {
    const double minutes = seconds / 60.0;
    fmt::print("{:<32} {:>14.1f} {:>14.2f} {:>9.1f}\n", row.name,
               static_cast<double>(row.after.wakeUps - row.before.wakeUps) / minutes,
               (row.after.milliseconds - row.before.milliseconds) / minutes,
               static_cast<double>(row.after.proportionalSize) / 1024);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const int seconds = argc > 1 ? std::atoi(argv[1]) : 60;
  std::vector<Row> rows{{"ostrelctl watch", start("ostrelctl", "watch")},
                        {"bare loop over /proc, each 5 s", startBareLoop()}};
#ifdef OSTREL_DESKTOP
  // With a home of its own, so that it changes nobody's settings.
  char home[] = "/tmp/ostrel-at-rest-XXXXXX";
  const bool desktop = std::getenv("DISPLAY") && ::mkdtemp(home);
  if (desktop) {
    ::setenv("HOME", home, 1);
    for (const char* name :
         {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_RUNTIME_DIR", "CODEX_HOME", "CLAUDE_CONFIG_DIR"})
      ::unsetenv(name);
    rows.push_back({"Ostrel, its handle alone", start("../libexec/Ostrel", "--at-rest")});
  }
#endif
  std::this_thread::sleep_for(std::chrono::seconds(15));  // past the first, complete scans and the first rest
  fmt::print("{:<32} {:>14} {:>14} {:>9}\n", "at rest", "wake-ups/min", "CPU ms/min", "PSS MB");
  measure(rows, seconds);
  const auto cpu = [](const Row& row) { return row.after.milliseconds - row.before.milliseconds; };
  const double ratio = cpu(rows[0]) / cpu(rows[1]);
#ifdef OSTREL_DESKTOP
  if (desktop) {
    pointAtHandle();
    std::this_thread::sleep_for(std::chrono::seconds(3));
    std::vector<Row> open{{"Ostrel, its list open", rows[2].pid}};
    measure(open, seconds);
    fs::remove_all(home);
  }
#endif
  for (const Row& row : rows) {
    ::kill(row.pid, SIGKILL);
    ::waitpid(row.pid, nullptr, 0);
  }
  fmt::print("CPU ratio {:.2f}\n", ratio);
  return 0;
}
