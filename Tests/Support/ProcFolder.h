// A made-up /proc in a folder of a test's own.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "Support/TemporaryFolder.h"

namespace ostrel {

class ProcFolder {
 public:
  static constexpr std::int64_t kBootTime = 1'790'000'000;

  struct Process {
    int pid = 0;
    std::string comm{};
    int parent = 1;
    int terminal = 0;
    std::uint64_t ticks = 100;
    char state = 'S';
    std::vector<std::string> arguments{};
    std::string executable{};  // what the link says; none when empty
    std::string folder{};
    std::vector<std::string> files{};  // held open for writing
    std::vector<std::string> variables{};
  };

  ProcFolder();
  const std::filesystem::path& path() const { return folder_.path(); }
  // Makes the process; one of the same pid is rewritten in place, as an exec or a new parent does.
  void put(const Process& process);
  void remove(int pid);
  // What the process's "status" says.
  void status(int pid, std::string_view text);

 private:
  TemporaryFolder folder_;
};

// tty_nr of a pseudo-terminal.
constexpr int pseudoTerminal(int number) { return (136 << 8) | (number & 0xFF) | ((number & 0xFFF00) << 12); }

}  // namespace ostrel
