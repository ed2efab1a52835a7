#include "Support/ProcFolder.h"

#include <fmt/format.h>

namespace ostrel {

namespace fs = std::filesystem;

ProcFolder::ProcFolder() {
  folder_.write("stat", fmt::format("cpu  1 2 3\nbtime {}\nprocesses 9\n", kBootTime));
  folder_.write("tty/drivers",
                "/dev/tty             /dev/tty        5       0 system:/dev/tty\n"
                "usbserial            /dev/ttyUSB   188 0-511 serial\n");
  folder_.write("self/stat", "1 (not a pid) S 0 0 0 0 0\n");
}

void ProcFolder::put(const Process& process) {
  const fs::path name = std::to_string(process.pid);
  folder_.write(
      name / "stat",
      fmt::format("{} ({}) {} {} 1 1 {} -1 4194560 1 0 0 0 0 0 0 0 20 0 1 0 {} 9 9 9\n", process.pid,
                  process.comm, process.state, process.parent, process.terminal, process.ticks));
  std::string arguments;
  for (const auto& argument : process.arguments) arguments += argument + '\0';
  folder_.write(name / "cmdline", arguments);
  std::string variables;
  for (const auto& variable : process.variables) variables += variable + '\0';
  folder_.write(name / "environ", variables);
  const auto link = [&](const std::string& target, const fs::path& at) {
    fs::remove(folder_.path() / name / at);
    if (!target.empty()) fs::create_symlink(target, folder_.path() / name / at);
  };
  link(process.executable, "exe");
  link(process.folder, "cwd");
  fs::remove_all(folder_.path() / name / "fd");
  fs::create_directories(folder_.path() / name / "fd");
  for (std::size_t i = 0; i < process.files.size(); ++i)
    link(process.files[i], fs::path("fd") / std::to_string(i + 3));
}

void ProcFolder::status(int pid, std::string_view text) {
  folder_.write(std::filesystem::path(std::to_string(pid)) / "status", text);
}

void ProcFolder::remove(int pid) { fs::remove_all(folder_.path() / std::to_string(pid)); }

}  // namespace ostrel
