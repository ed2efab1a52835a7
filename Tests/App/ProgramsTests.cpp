// The launcher and the desktop program as they are installed: real processes, a home folder of their own.
#include <csignal>
#include <filesystem>

#include <gtest/gtest.h>

#include "Platform/Linux/PreferenceFile.h"
#include "Runtime/Files.h"
#include "Support/ChildProcess.h"
#include "Support/Eventually.h"
#include "Support/StrangersSocket.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;

const fs::path kLauncher = fs::path(OSTREL_BIN_DIR) / "Ostrel";
const fs::path kDesktop = fs::path(OSTREL_BIN_DIR).parent_path() / "libexec" / "Ostrel";

TEST(Launcher, BecomesTheDesktopProgramBesideItExceptInTheHookRole) {
  const TemporaryFolder prefix;
  const fs::path launcher = prefix.path() / "bin/Ostrel";
  fs::create_directories(prefix.path() / "bin");
  fs::copy_file(kLauncher, launcher);
  const auto missing = runCommand({launcher.string()}, {});
  EXPECT_EQ(missing.status, 127);
  EXPECT_EQ(missing.output + missing.errors, "Ostrel: could not start " +
                                                 (prefix.path() / "libexec/Ostrel").string() +
                                                 ": No such file or directory\n");
  fs::permissions(
      prefix.write("libexec/Ostrel",
                   "#!/bin/sh\necho \"$0\"; for word; do echo \"[$word]\"; done; echo \"$MARK\"; exit 3"),
      fs::perms::owner_all);
  fs::create_symlink(launcher, prefix.path() / "link");
  for (const char* called : {"bin/Ostrel", "link"}) {
    const auto run = runCommand({(prefix.path() / called).string(), "two words", "", "--permission-hooks"},
                                {{"MARK", "kept"}});
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.output, (prefix.path() / "libexec/Ostrel").string() +
                              "\n[two words]\n[]\n[--permission-hooks]\nkept\n");
    EXPECT_EQ(run.errors, "");
  }
  const auto hook = runCommand({launcher.string(), "x", "--permission-hook", "y"}, {});
  EXPECT_EQ(hook.status, 0);
  EXPECT_EQ(hook.output + hook.errors, "");
}

TEST(LauncherTest, TellsAnotherUsersSocketNothing) {
  if (!StrangersSocket::possible()) GTEST_SKIP() << "only root can become another user";
  const TemporaryFolder folder;
  const std::string path = folder.path() / "s";
  StrangersSocket stranger(path);
  const TemporaryFolder questions;
  const auto question = questions.write("question", R"({"session_id":"s","tool_name":"Bash"})");
  const auto hook = runCommand(
      {"/bin/sh", "-c", "exec \"$0\" --permission-hook < \"$1\"", kLauncher.string(), question.string()},
      {{"OSTREL_PERMISSION_SOCKET", path}});
  EXPECT_EQ(hook.status, 0) << "the terminal's own prompt decides";
  EXPECT_EQ(hook.output, "");
  EXPECT_EQ(hook.errors, "Ostrel: the permission socket belongs to another user. Nothing was sent.\n");
  EXPECT_EQ(stranger.heard(), "");
}

// What a run that is not for a check says where nothing can be shown, and goes on.
constexpr char kNoDisplay[] = "Ostrel: no windows: there is no display\n";

// Whether a process has got as far as receiving signals by descriptor.
bool listens(pid_t pid) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd", error)) {
    if (fs::read_symlink(entry, error) == "anon_inode:[signalfd]") return true;
  }
  return false;
}

// A parent that ignores the ends of its children would have every tool count as a success.
TEST(ProgramsTest, TakeBackWhatACarelessParentLeft) {
  const TemporaryFolder home;
  for (const char* const command :
       {"'" OSTREL_BIN_DIR "/Ostrel' --check-managed-fixture", "'" OSTREL_BIN_DIR "/ostrelctl' watch"}) {
    ChildProcess program({"/bin/sh", "-c", std::string("trap '' CHLD; exec ") + command},
                         {{"HOME", home.path().string()}, {"PATH", "/usr/bin:/bin"}});
    const auto childEnds = [&] {
      const auto status = files::read("/proc/" + std::to_string(program.pid()) + "/status").value_or("");
      const auto at = status.find("SigIgn:\t");
      const auto ignored = at == std::string::npos ? 0 : std::stoull(status.substr(at + 8, 16), nullptr, 16);
      return status.contains("strel") && (ignored >> (SIGPIPE - 1) & 1) == 1 &&
             (ignored >> (SIGCHLD - 1) & 1) == 0;
    };
    EXPECT_TRUE(eventually(childEnds)) << command;
  }
}

// Every run here has an argument with "--", so that it leaves the copies alone that a developer may have
// running.
TEST(DesktopProgramTest, ResidesUntilASignalAndLeavesNoFixtureBehind) {
  const TemporaryFolder home;
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    ChildProcess program({kLauncher.string(), "--check-managed-fixture"}, {{"HOME", home.path().string()}});
    ASSERT_TRUE(eventually([&] { return listens(program.pid()); }));
    EXPECT_EQ(fs::read_symlink("/proc/" + std::to_string(program.pid()) + "/exe"), fs::canonical(kDesktop));
    program.signal(SIGPIPE);  // as a peer that hangs up would
    program.signal(signal);
    const auto run = program.finish();
    EXPECT_EQ(run.status, 0) << signal;
    EXPECT_EQ(run.output + run.errors, "");
  }
  EXPECT_TRUE(fs::is_empty(home.path())) << "a fixture run leaves nothing";
}

TEST(DesktopProgramTest, BrokenPreferencesAreNamedOnStandardError) {
  const TemporaryFolder home;
  const auto file = home.write("settings/ostrel/one.ostrel.app.json", "torn {");
  ChildProcess program(
      {kLauncher.string(), "--preview-codex-daily"},
      {{"HOME", home.path().string()}, {"XDG_CONFIG_HOME", (home.path() / "settings").string()}});
  ASSERT_TRUE(eventually([&] { return listens(program.pid()); }));
  program.signal(SIGTERM);
  const auto run = program.finish();
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.errors, "Ostrel: " + file.string() + " could not be understood; it was set aside as " +
                            file.string() + ".broken\n" + kNoDisplay);
  EXPECT_EQ(files::read(file.string() + ".broken"), "torn {");
  const auto values = parsePreferences(files::read(file).value_or(""));
  ASSERT_TRUE(values);
  EXPECT_TRUE(values->contains("ostrel.movedFromPreviousDomain"));
  EXPECT_FALSE(values->contains("settings.openOnHover"));
}

// Two normal copies, in a process namespace of their own, where no other copy can be met.
TEST(DesktopProgramTest, TheLaterOfTwoCopiesStays) {
  const TemporaryFolder home;
  const auto runAlone = [&](const char* script) {
    return runCommand({"/usr/bin/unshare", "-Urpf", "--kill-child", "--mount-proc", "/bin/sh", "-c", script,
                       kLauncher.string()},
                      {{"HOME", home.path().string()}, {"PATH", "/usr/bin:/bin"}});
  };
  if (runAlone("test $$ = 1 && test -d /proc/1").status != 0)
    GTEST_SKIP() << "namespaces are not allowed here";
  const auto run = runAlone(R"(
    listens() { until ls -l /proc/$1/fd 2>/dev/null | grep -q signalfd; do sleep 0.02; done; }
    "$0" & first=$!
    listens $first
    "$0" & second=$!
    wait $first
    echo "first ended with $?"
    listens $second
    kill -0 $second && echo "second runs"
    kill -TERM $second
    wait $second
    echo "second ended with $?")");
  EXPECT_EQ(run.output, "first ended with 0\nsecond runs\nsecond ended with 0\n");
  EXPECT_EQ(run.errors, std::string(kNoDisplay) + kNoDisplay);
}

}  // namespace
}  // namespace ostrel
