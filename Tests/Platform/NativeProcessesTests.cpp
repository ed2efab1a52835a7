#include <algorithm>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Platform/Linux/NativeProcesses.h"
#include "Platform/Linux/ProcessStat.h"
#include "Runtime/Text.h"
#include "Support/ChildProcess.h"
#include "Support/ForkedProcess.h"
#include "Support/ProcFolder.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

namespace fs = std::filesystem;

bool isAgent(std::string_view name) { return name == "claude"; }

// "pid:name>parent" of each row, for short.
std::string shown(const std::vector<ProcessRow>& rows) {
  std::string text;
  for (const auto& row : rows) text += fmt::format("{}:{}>{} ", row.pid, row.name(), row.parent);
  return text;
}

ProcessRow rowOf(NativeProcesses& processes, pid_t pid) {
  const auto rows = processes.rows(nullptr);
  const auto found = std::ranges::find(rows, pid, &ProcessRow::pid);
  EXPECT_NE(found, rows.end()) << "no row for " << pid;
  return found == rows.end() ? ProcessRow() : *found;
}

TEST(ProcessStat, ReadsAnyNameAndRefusesWhatDoesNotFit) {
  const std::string rest = " S 12 1 1 34817 -1 4194560 1 0 0 0 0 0 0 0 20 0 1 0 987 9 9\n";
  for (const std::string name :
       {"sh", "(very (odd) na)", ") S 1", "a\nb", "", "0123456789abcde", "\xff\xfe"}) {
    const auto row = parseProcessStat("77 (" + name + ")" + rest);
    ASSERT_TRUE(row) << name;
    EXPECT_EQ(row->name(), name);
    EXPECT_TRUE(row->parent == 12 && row->terminal == 34817 && row->startTicks == 987u && !row->zombie);
  }
  EXPECT_EQ(parseProcessStat("7 (kworker/0:1-events)" + rest)->name(), "kworker/0:1-eve");
  for (const std::string& bad :
       {std::string(), std::string("7"), std::string("7 (a"), "7 a)" + rest, std::string("7 (a) S"),
        std::string("7 (a) S 1 1 1 0 -1 4194560 1 0 0"), "7 (a) S x" + rest})
    EXPECT_FALSE(parseProcessStat(bad)) << bad;
}

TEST(ProcessStat, NamesTerminals) {
  const std::string drivers =
      "usbserial /dev/ttyUSB 188 0-511 serial\nttyprintk /dev/ttyprintk 5 3 console\n";
  const std::pair<int, const char*> cases[] = {
      {pseudoTerminal(3), "pts/3"}, {0x10882c, "pts/300"}, {0x0401, "tty1"},      {0x0441, "ttyS1"},
      {0x0501, "console"},          {0xBC02, "ttyUSB2"},   {0x0503, "ttyprintk"}, {0x2305, "?"}};
  for (const auto& [device, name] : cases) EXPECT_EQ(parseTerminalName(device, drivers).value_or("?"), name);
}

TEST(NativeProcesses, TableKeepsOneLineForEachProcessWhateverItsName) {
  ProcFolder proc;
  proc.put({.pid = 30, .comm = "a\nb)\t\xff c", .terminal = pseudoTerminal(3), .ticks = 250});
  proc.put({.pid = 4, .comm = "claude.exe", .executable = "/opt/x/claude.exe"});
  proc.put({.pid = 5, .comm = "claude", .state = 'Z', .executable = "/opt/claude/2.1.197"});
  proc.put({.pid = 6, .comm = "node", .executable = "/srv/A.app/Contents/MacOS/Main"});
  proc.put({.pid = 7, .comm = "next\xC2\x85line"});
  NativeProcesses processes(proc.path());
  const std::string second = processes.startString(ProcFolder::kBootTime + 1);
  EXPECT_EQ(*processes.table(),
            fmt::format("4 1 {0} S ?? {1} /opt/x/claude.exe\n5 1 {0} Z ?? {1} claude\n"
                        "6 1 {0} S ?? {1} /srv/A.app/Contents/MacOS/Main\n7 1 {0} S ?? {1} next?line\n"
                        "30 1 {0} S pts/3 {2} a?b)?\xEF\xBF\xBD c",
                        ::getuid(), second, processes.startString(ProcFolder::kBootTime + 2)));
  EXPECT_EQ(text::words(second).size(), 5u);
}

// After ten seconds rows are settled: only the rules below make one be read again before its turn.
TEST(NativeProcesses, LaterCallsReadWhatCanHaveChanged) {
  ProcFolder proc;
  constexpr int turn = 12;  // pids that are multiples of it have their turn together, in every twelfth call
  proc.put({.pid = turn, .comm = "init", .parent = 0});
  proc.put({.pid = 2 * turn, .comm = "shell", .parent = turn});
  proc.put({.pid = 3 * turn, .comm = "claude", .parent = 2 * turn});
  proc.put({.pid = 4 * turn, .comm = "tty", .parent = turn, .terminal = pseudoTerminal(1)});
  proc.put({.pid = 5 * turn, .comm = "quiet", .parent = turn});
  proc.put({.pid = 6 * turn, .comm = "child", .parent = 5 * turn});
  TimePoint now{};
  NativeProcesses processes(proc.path(), [&] { return now; });
  const auto rows = [&](int calls = 1) {
    for (; calls > 1; --calls) processes.rows(isAgent);
    return shown(processes.rows(isAgent));
  };
  const auto change = [&](const char* name, std::uint64_t ticks = 950) {
    proc.put({.pid = 6 * turn, .comm = name, .parent = turn, .ticks = ticks});
  };
  rows();
  now += 10s;
  rows(2);

  // An exec (same pid, same inode, new name) is seen at once for ancestors of agents and rows on a terminal.
  proc.put({.pid = 2 * turn, .comm = "zsh", .parent = turn});
  proc.put({.pid = 4 * turn, .comm = "claude", .parent = turn, .terminal = pseudoTerminal(1)});
  proc.put({.pid = 5 * turn, .comm = "LOUD", .parent = turn});
  EXPECT_EQ(rows(), "12:init>0 24:zsh>12 36:claude>24 48:claude>12 60:quiet>12 72:child>60 ");
  // An orphan gets its new parent in the call that misses the old one.
  proc.remove(5 * turn);
  proc.put({.pid = 6 * turn, .comm = "child", .parent = turn});
  EXPECT_EQ(rows(), "12:init>0 24:zsh>12 36:claude>24 48:claude>12 72:child>12 ");
  // A pid that starts anew is a new process; its exec is seen within the ten seconds that follow, also after
  // a burst of calls.
  change("child", 900);
  rows(12);
  proc.remove(6 * turn);
  rows();
  change("forked");
  EXPECT_TRUE(rows().ends_with("72:forked>12 "));
  rows(4);
  now += 9s;
  change("execed");
  EXPECT_TRUE(rows().ends_with("72:execed>12 "));
  now += 1s;
  // Whatever else changes is seen within twelve calls.
  change("later");
  EXPECT_TRUE(rows(12).ends_with("72:later>12 "));
  // One that took the number of another began when it began.
  const auto start = [&] { return processes.rows(nullptr).back().startSeconds; };
  const std::int64_t before = start();
  change("later", 950 + 60 * static_cast<std::uint64_t>(::sysconf(_SC_CLK_TCK)));
  rows(12);
  EXPECT_EQ(start(), before + 60);
  // The text is always read anew.
  change("last");
  EXPECT_TRUE(processes.table()->ends_with(" last"));
}

TEST(NativeProcesses, SeesRealProcessesAsTheyAre) {
  const TemporaryFolder folder;
  for (const char* name : {"claude", "2.1.197"}) fs::copy_file("/bin/sleep", folder.path() / name);
  fs::create_symlink("2.1.197", folder.path() / "agent");
  const auto sleeper = [&](const char* name) {
    return [path = folder.path() / name] { ::execl(path.c_str(), path.c_str(), "900", nullptr); };
  };
  const ForkedProcess renamed([] { ::prctl(PR_SET_NAME, "x\n) (\xff"); });
  const ForkedProcess ended;
  const ForkedProcess execed(sleeper("claude"));
  const ForkedProcess versioned(sleeper("agent"));
  ended.kill();
  NativeProcesses processes;

  EXPECT_EQ(rowOf(processes, renamed.pid()).name(), "x\n) (\xff");
  EXPECT_TRUE(rowOf(processes, ended.pid()).zombie);
  EXPECT_EQ(processes.argumentList(ended.pid()), std::vector<std::string>{});
  EXPECT_EQ(processes.command(rowOf(processes, versioned.pid())), "agent");
  const ProcessRow row = rowOf(processes, execed.pid());
  EXPECT_EQ(row.parent, ::getpid());
  const std::string path = (folder.path() / "claude").string();
  EXPECT_EQ(processes.argumentList(row.pid), (std::vector<std::string>{path, "900"}));
  // An agent that replaced its own file is still that agent.
  fs::rename(folder.path() / "2.1.197", folder.path() / "claude");
  EXPECT_EQ(processes.executablePath(row.pid), path);
  EXPECT_EQ(processes.command(row), path);
  EXPECT_TRUE(processes.alive(row.pid) && processes.alive(ended.pid()));
  EXPECT_FALSE(processes.alive(0) || processes.traced(row.pid));
  if (::ptrace(PTRACE_SEIZE, row.pid, nullptr, nullptr) == 0)  // where tracing is allowed
    EXPECT_TRUE(processes.traced(row.pid));

  // A process that forbids tracing: its files belong to root, the process does not.
  const ForkedProcess closed([] {
    if (::geteuid() == 0 && ::setuid(65534) != 0) ::_exit(1);
    ::prctl(PR_SET_DUMPABLE, 0);
  });
  EXPECT_EQ(processes.uid(closed.pid()), ::geteuid() == 0 ? 65534 : ::geteuid());
}

TEST(NativeProcesses, TellsOpenFilesLikeLsof) {
  const TemporaryFolder folder;
  const ForkedProcess process([&] {
    if (::chdir(folder.path().c_str()) != 0) ::_exit(1);
    ::open("read", O_RDONLY | O_CREAT, 0600);
    ::open("write", O_WRONLY | O_CREAT, 0600);
    ::open("both\nlines", O_RDWR | O_CREAT | O_APPEND, 0600);
    ::open("real (deleted)", O_WRONLY | O_CREAT, 0600);
    ::open("gone", O_WRONLY | O_CREAT, 0600);
    ::open("/dev/null", O_WRONLY);
    ::unlink("gone");
    ::memfd_create("x", 0);
    ::socket(AF_UNIX, SOCK_STREAM, 0);
    ::open(".", O_RDONLY | O_DIRECTORY);
  });
  NativeProcesses processes;
  const std::string text = processes.openFiles(process.pid()) + "\n";
  EXPECT_TRUE(text.starts_with("fcwd\nn" + folder.path().string() + "\nf")) << text;
  const std::string here = folder.path().string();
  for (const std::string& record :
       {"ar\nn" + here + "/read\n", "aw\nn" + here + "/write\n", "au\nn" + here + "/both?lines\n",
        "aw\nn" + here + "/real (deleted)\n", "ar\nn" + here + "\n"})
    EXPECT_TRUE(text.contains(record)) << record << "in\n" << text;
  for (const char* absent : {"gone", "/dev/", "memfd", "socket", "lines\n/"})
    EXPECT_FALSE(text.contains(absent)) << text;
}

TEST(NativeProcesses, AgreesWithPs) {
  if (!fs::exists("/bin/ps")) GTEST_SKIP() << "no ps here";
  const UniqueFd master(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  ASSERT_TRUE(master && ::grantpt(master.get()) == 0 && ::unlockpt(master.get()) == 0);
  const std::string terminal = ::ptsname(master.get());
  const ForkedProcess onTerminal([&] {
    ::setsid();
    ::ioctl(::open(terminal.c_str(), O_RDWR), TIOCSCTTY, 0);
  });
  NativeProcesses processes;
  const std::string pid = std::to_string(onTerminal.pid());
  const auto ps =
      runCommand({"/bin/ps", "-o", "pid=,ppid=,uid=,stat=,tty=,lstart=,comm=", "-p", pid}, {{"LC_ALL", "C"}});
  const std::string table = "\n" + *processes.table();
  const std::string line = table.substr(table.find("\n" + pid + " ") + 1);
  const auto theirs = text::words(ps.output, 11), ours = text::words(text::split(line, '\n').front(), 11);
  ASSERT_TRUE(theirs.size() == 11 && ours.size() == 11) << ps.output << ps.errors << line;
  for (const std::size_t field : {0u, 1u, 2u, 4u, 5u, 6u, 7u, 8u, 9u})
    EXPECT_EQ(ours[field], theirs[field]) << line;
  EXPECT_EQ("/dev/" + processes.terminalName(rowOf(processes, onTerminal.pid()).terminal), terminal);
}

}  // namespace
}  // namespace ostrel
