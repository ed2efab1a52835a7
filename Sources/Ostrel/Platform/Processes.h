// The kernel's process tables as a port. `NativeProcesses` (Platform/Linux) reads them from /proc.
//
// Nothing here knows what an agent is. Every call answers with less when a process vanishes between two
// reads; none throws. Callable from any thread.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ostrel {

// One process in plain numbers, before any text is made of it. Its user is not among them: asking for it
// costs a seventh of the whole row, and the few callers that need it ask `Processes::uid`.
struct ProcessRow {
  std::int32_t pid = 0;
  std::int32_t parent = 0;
  std::int32_t terminal = 0;  // the kernel's tty_nr; 0 for none
  bool zombie = false;
  std::int64_t startSeconds = 0;  // since 1970; with the pid it makes the `started` text
  std::uint64_t startTicks = 0;   // since boot: (pid, startTicks) is the identity of a process
  std::array<char, 16> comm{};    // NUL-terminated, at most 15 bytes, any bytes

  // As the kernel has it, raw. `oneLine` makes text of it.
  std::string_view name() const { return comm.data(); }
  bool operator==(const ProcessRow&) const = default;
};

// Bytes of the kernel as one line of text: ill-formed UTF-8 becomes U+FFFD, a control character (a newline
// among them) "?".
std::string oneLine(std::string_view bytes);

class Processes {
 public:
  // Says of a name (raw) whether its bearer is of interest.
  using NameTest = bool (*)(std::string_view name);

  Processes() = default;
  Processes(const Processes&) = delete;
  Processes& operator=(const Processes&) = delete;
  virtual ~Processes() = default;

  // All processes, ascending by pid; empty when the kernel refuses. What changed little since the last call
  // costs little: always true are the set of processes and the rows of new processes, of processes on a
  // terminal, and of those whose name passes `followed`, with their ancestors. Name, parent and state of any
  // other row may be as old as the twelfth call before this one.
  virtual std::vector<ProcessRow> rows(NameTest followed) = 0;

  // All processes, read anew, as text in the layout of `ps -axo pid=,ppid=,uid=,stat=,tty=,lstart=,comm=`,
  // fields separated by one blank, lines by one newline, no trailing newline; nothing when there are no rows.
  // The command of the user's own processes is the repaired one (see `command`), of others the kernel's name.
  virtual std::optional<std::string> table() = 0;

  // The effective user of a process; nothing when it is gone.
  virtual std::optional<std::uint32_t> uid(std::int32_t pid) = 0;

  // The command of a process, as one line: its executable's path where the path's last component is its name
  // (a trailing ".exe" ignored on both sides) or where the path contains ".app/Contents/MacOS/"; otherwise
  // the name less ".exe". So a launcher whose real binary has another name (a version, for instance) stays
  // known by the name it runs under.
  virtual std::string command(const ProcessRow& row) = 0;

  // "pts/3", "tty1"; "??" for no terminal and for unknown devices.
  virtual std::string terminalName(std::int32_t device) = 0;

  // "Sun Nov 22 21:51:10 2026": five words (day padded by nothing), English, the machine's local time zone.
  virtual std::string startString(std::int64_t seconds) = 0;

  // The argument vector, repaired UTF-8; empty on any failure and for kernel threads and zombies. Empty
  // arguments at the end are left out: a program that renames itself leaves such behind.
  virtual std::vector<std::string> argumentList(std::int32_t pid) = 0;

  // A variable of the environment with which the process was started, repaired UTF-8; nothing where it is not
  // set, and on any failure.
  virtual std::optional<std::string> variable(std::int32_t pid, std::string_view name) = 0;

  // The open files in the field format of `lsof -F`: "fcwd", "n<folder>", then per open file "f<descriptor>",
  // "a<r|w|u>", "n<path as one line>", joined by newlines; possibly empty. Sockets, pipes, devices, memory
  // files and files that have no name any more are passed over.
  virtual std::string openFiles(std::int32_t pid) = 0;

  // The working folder, repaired UTF-8, whatever characters it holds; empty on any failure.
  virtual std::string workingFolder(std::int32_t pid) = 0;

  // The pids that the process has in namespaces within ours, outermost first; usually none.
  virtual std::vector<std::int32_t> innerPids(std::int32_t pid) = 0;

  // Full path of the executable, raw, or the empty string. An executable that was deleted or replaced since
  // keeps the path under which it was started.
  virtual std::string executablePath(std::int32_t pid) = 0;

  // Whether `kill(pid, 0)` succeeds: the process exists and may be signalled.
  virtual bool alive(std::int32_t pid) = 0;

  // Whether a debugger or tracer is attached to the process; false when that can't be read.
  virtual bool traced(std::int32_t pid) = 0;

  // The user id of this program.
  virtual std::uint32_t ownUid() = 0;
};

}  // namespace ostrel
