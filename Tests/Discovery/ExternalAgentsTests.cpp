#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Discovery/ExternalAgents.h"
#include "Platform/Linux/NativeProcesses.h"
#include "Runtime/Failure.h"
#include "Support/ProcFolder.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;

constexpr auto kFirst = "11111111-2222-4333-8444-555555555555";
constexpr auto kSecond = "AAAAAAAA-bbbb-4ccc-8ddd-eeeeeeeeeeee";

class FixtureProcesses : public NativeProcesses {
 public:
  explicit FixtureProcesses(const fs::path& root) : NativeProcesses(root) {}
  std::vector<ProcessRow> rows(NameTest followed) override {
    return rowsHidden ? std::vector<ProcessRow>() : NativeProcesses::rows(followed);
  }
  std::optional<std::string> table() override {
    return tableHidden ? std::nullopt : NativeProcesses::table();
  }
  std::optional<std::uint32_t> uid(std::int32_t pid) override {
    return foreign.contains(pid) ? std::optional(ownUid() + 1) : NativeProcesses::uid(pid);
  }
  bool alive(std::int32_t pid) override { return !gone.contains(pid); }

  bool rowsHidden = false;
  bool tableHidden = false;
  std::set<std::int32_t> foreign;
  std::set<std::int32_t> gone;
};

// Knows one terminal, and one that is a script.
class FixtureHosts : public HostApplications {
 public:
  std::optional<std::string> hostOf(const std::string& executable,
                                    const std::vector<std::string>& arguments) override {
    if (executable == "/usr/bin/kitty") return executable;
    if (executable == "/usr/bin/python3.11" && arguments.size() > 1) return arguments[1];
    return std::nullopt;
  }
};

class ExternalAgentsTest : public testing::Test {
 protected:
  static constexpr int kTerminal = pseudoTerminal(7);

  void SetUp() override {
    environment_.home = home_.path();
    proc_.put({.pid = 1, .comm = "systemd", .parent = 0, .executable = "/lib/systemd"});
    proc_.put({.pid = 10, .comm = "kitty", .executable = "/usr/bin/kitty"});
    proc_.put({.pid = 11, .comm = "bash", .parent = 10, .terminal = kTerminal, .executable = "/bin/bash"});
    processes_.foreign = {1};
  }

  // An agent on a terminal in kitty, unless the record says otherwise.
  void agent(ProcFolder::Process process, std::vector<std::string> more = {}) {
    if (process.arguments.empty()) process.arguments = {process.comm};
    process.arguments.insert(process.arguments.end(), more.begin(), more.end());
    if (process.parent == 1) process.parent = 11;
    if (process.terminal == 0) process.terminal = kTerminal;
    if (process.terminal < 0) process.terminal = 0;
    proc_.put(process);
  }
  void session(int pid, std::string_view id, double secondsAfterStart, std::string_view status,
               int pidInFile = 0) {
    const double start = static_cast<double>(ProcFolder::kBootTime) + 1 + secondsAfterStart;  // of 100 ticks
    home_.write(
        fmt::format(".claude/sessions/{}.json", pid),
        fmt::format(R"({{"pid":{},"sessionId":"{}","startedAt":{:.0f},"status":"{}","updatedAt":5000}})",
                    pidInFile ? pidInFile : pid, id, start * 1000, status));
  }
  std::string rollout(std::string_view id, const fs::path& folder = ".codex/sessions/2026") {
    return home_.write(folder / fmt::format("rollout-2026-11-22-{}.jsonl", id), "").string();
  }

  std::vector<HerdrAgent> scan() {
    AgentTranscript transcripts(environment_);
    ConversationTitles titles(transcripts);
    ExternalAgents agents({processes_, hosts_, transcripts, titles, environment_, runPs_,
                           [this](std::string_view line) { announced_ += line; }});
    return agents.scan(stop_.get_token());
  }
  // One line an agent; the same whichever way the table came.
  std::string seen() {
    const auto found = scan();
    processes_.rowsHidden = true;
    EXPECT_EQ(scan(), found) << "from the text of the table";
    processes_.rowsHidden = false;
    std::string lines;
    for (const auto& agent : found) {
      EXPECT_EQ(agent.paneID,
                fmt::format("{}:{}", agent.externalProcess->pid, agent.externalProcess->started));
      EXPECT_TRUE(agent.session == "external" && !agent.acceptsDirectInput && !agent.terminalID);
      lines += fmt::format("{} {} {} {} in {} at {}: {}\n", agent.externalProcess->pid, agent.provider,
                           stateName(agent.state), agent.transcriptKind.value_or("unlinked"),
                           agent.herdrOwned ? "herdr" : agent.externalProcess->hostApp.value_or("nothing"),
                           agent.context, agent.title);
    }
    return lines;
  }

  ProcFolder proc_;
  TemporaryFolder home_;
  Environment environment_;
  FixtureProcesses processes_{proc_.path()};
  FixtureHosts hosts_;
  std::function<std::string(const std::vector<std::string>&, std::stop_token)> runPs_;
  std::stop_source stop_;
  std::string announced_;
};

TEST_F(ExternalAgentsTest, TellsThePaneOfHerdrThatTheEnvironmentNames) {
  agent({.pid = 20, .comm = "claude", .variables = {"A=1", "HERDR_ENV=1", "HERDR_PANE_ID=w1:p3"}});
  agent({.pid = 21, .comm = "claude", .variables = {"HERDR_PANE_ID=w1:p4", "XHERDR_ENV=1"}});
  const auto found = scan();
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].externalProcess->herdrPane, "w1:p3");
  EXPECT_FALSE(found[1].externalProcess->herdrPane);
}

TEST_F(ExternalAgentsTest, KeepsConversationsAndNothingElse) {
  agent({.pid = 20, .comm = "claude", .executable = "/opt/claude/2.1", .folder = "/w/api"});
  agent({.pid = 21, .comm = "claude"}, {"--version"});
  agent({.pid = 22, .comm = "claude"}, {"resume", "mcp-server"});
  agent({.pid = 23, .comm = "claude"}, {"go", "on", "--help"});
  agent({.pid = 24, .comm = "node", .arguments = {"node", "/bin/claude"}, .executable = "/bin/node"});
  agent({.pid = 25, .comm = "codex", .terminal = -1}, {"exec", "do it"});
  agent({.pid = 26, .comm = "codex", .terminal = -1});
  agent({.pid = 27, .comm = "codex", .terminal = -1, .arguments = {"codex exec rewritten"}});
  agent({.pid = 28, .comm = "claude", .state = 'Z'});
  agent({.pid = 29, .comm = "claude"});
  agent({.pid = 30, .comm = "gemini.exe", .executable = "/opt/gemini.exe"});
  agent({.pid = 31, .comm = "Claude"});
  agent({.pid = 32, .comm = "aider"});
  agent({.pid = 33, .comm = " claude"}, {"x"});
  agent({.pid = 34, .comm = "a/codex", .folder = "/"});
  agent({.pid = 35, .comm = "codex\n"});
  agent({.pid = 36, .comm = "   "});
  proc_.put({.pid = 37, .comm = "claude", .terminal = kTerminal});  // no arguments
  processes_.foreign.insert(29);
  processes_.gone.insert(32);
  EXPECT_EQ(seen(),
            "20 claude unknown unlinked in /usr/bin/kitty at /w/api: Claude · api\n"
            "23 claude unknown unlinked in /usr/bin/kitty at Project unavailable: Claude · pts/7\n"
            "25 codex unknown unlinked in /usr/bin/kitty at Project unavailable: Codex · ??\n"
            "27 codex unknown unlinked in /usr/bin/kitty at Project unavailable: Codex · ??\n"
            "30 gemini unknown unlinked in /usr/bin/kitty at Project unavailable: Gemini · pts/7\n"
            "33 claude unknown unlinked in /usr/bin/kitty at Project unavailable: Claude · pts/7\n"
            "34 codex unknown unlinked in /usr/bin/kitty at /: Codex · /\n");
  EXPECT_EQ(announced_, "");
  environment_.arguments = {"Ostrel", "--check-discovery-live"};
  scan();
  // All but the foreign, the zombie and the nameless; "codex" with a newline is no agent's name.
  EXPECT_EQ(announced_, "Observed 17 user processes; candidates: 12");
}

TEST_F(ExternalAgentsTest, FindsWhatTheAgentRunsIn) {
  // Codex's npm launcher, the program itself, its sandbox: one agent; a Claude that it starts is another.
  proc_.put({.pid = 20, .comm = "node", .parent = 11, .terminal = kTerminal, .executable = "/usr/bin/node"});
  agent({.pid = 21, .comm = "codex", .parent = 20});
  proc_.put({.pid = 22, .comm = "codex-linux-san", .parent = 21});
  proc_.put({.pid = 23, .comm = "3", .parent = 22});
  agent({.pid = 24, .comm = "codex", .parent = 23, .terminal = -1, .arguments = {"codex-linux-sandbox"}},
        {"exec", "ls"});
  agent({.pid = 25, .comm = "claude", .parent = 21});
  // Root's processes in between are no end for the host, but a Herdr of another user is nothing to us.
  proc_.put({.pid = 30, .comm = "sudo", .parent = 11});
  agent({.pid = 31, .comm = "claude", .parent = 30});
  proc_.put({.pid = 40, .comm = "herdr", .parent = 10, .executable = "/opt/herdr"});
  agent({.pid = 41, .comm = "claude", .parent = 40});
  proc_.put({.pid = 42, .comm = "herdr", .parent = 10});
  agent({.pid = 43, .comm = "claude", .parent = 42});
  // A terminal under its script's name, a name that the kernel cut, a bundle, a terminal that is gone.
  proc_.put({.pid = 50,
             .comm = "terminator",
             .arguments = {"python3", "/usr/bin/terminator"},
             .executable = "/usr/bin/python3.11"});
  agent({.pid = 51, .comm = "claude", .parent = 50});
  proc_.put({.pid = 52, .comm = "Ghostty", .executable = "/x/Ghostty.app/Contents/MacOS/ghostty"});
  agent({.pid = 53, .comm = "claude", .parent = 52});
  agent({.pid = 54, .comm = "claude", .parent = 99});
  agent({.pid = 55, .comm = "claude", .parent = 56});
  proc_.put({.pid = 56, .comm = "loop", .parent = 55});
  processes_.foreign.insert({30, 42});
  EXPECT_EQ(seen(),
            "21 codex unknown unlinked in /usr/bin/kitty at Project unavailable: Codex · pts/7\n"
            "25 claude unknown unlinked in /usr/bin/kitty at Project unavailable: Claude · pts/7\n"
            "31 claude unknown unlinked in /usr/bin/kitty at Project unavailable: Claude · pts/7\n"
            "41 claude unknown unlinked in herdr at Project unavailable: Claude · pts/7\n"
            "43 claude unknown unlinked in /usr/bin/kitty at Project unavailable: Claude · pts/7\n"
            "51 claude unknown unlinked in /usr/bin/terminator at Project unavailable: Claude · pts/7\n"
            "53 claude unknown unlinked in /x/Ghostty.app at Project unavailable: Claude · pts/7\n"
            "54 claude unknown unlinked in nothing at Project unavailable: Claude · pts/7\n");
}

TEST_F(ExternalAgentsTest, TiesAConversationOnlyWhereItIsProved) {
  const std::string one = rollout(kFirst);
  const std::string two = rollout(kSecond);
  const std::string outside = rollout(kFirst, "elsewhere");
  fs::create_directory_symlink(home_.path() / ".codex/sessions", home_.path() / "link");
  agent({.pid = 20,
         .comm = "codex",
         .files = {one, outside, (home_.path() / "link/2026" / fs::path(one).filename()).string()}});
  agent({.pid = 21, .comm = "codex", .files = {one, two}});
  agent({.pid = 22, .comm = "codex", .files = {outside, "/dev/null"}});
  const auto found = scan();
  ASSERT_EQ(found.size(), 3u);
  EXPECT_EQ(found[0].transcriptKind, "path");
  EXPECT_EQ(found[0].transcriptReference, one);
  EXPECT_TRUE(found[0].since);
  for (const std::size_t i : {1u, 2u})
    EXPECT_FALSE(found[i].transcriptKind || found[i].transcriptReference || found[i].since);
}

TEST_F(ExternalAgentsTest, BelievesASessionFileOfThisVeryProcess) {
  const std::string open = home_.write(fmt::format(".claude/projects/-w/{}.jsonl", kFirst), "").string();
  for (const int pid : {20, 21, 22, 23, 24, 25})
    agent(
        {.pid = pid, .comm = "claude", .files = pid == 21 ? std::vector{open} : std::vector<std::string>()});
  session(20, kSecond, 9.9, "Waiting");
  session(21, kSecond, 0, "busy", 20);
  session(22, kSecond, 10, "busy");
  session(23, kSecond, -9.9, "");
  session(24, "no-uuid", 0, "busy");
  home_.write(".claude/sessions/25.json", "{\"pid\":25");
  EXPECT_EQ(seen(),
            "20 claude blocked id in /usr/bin/kitty at Project unavailable: Claude · pts/7\n"
            "21 claude unknown path in /usr/bin/kitty at Project unavailable: Claude · pts/7\n"
            "22 claude unknown unlinked in /usr/bin/kitty at Project unavailable: Claude · pts/7\n"
            "23 claude unknown id in /usr/bin/kitty at Project unavailable: Claude · pts/7\n"
            "24 claude unknown unlinked in /usr/bin/kitty at Project unavailable: Claude · pts/7\n"
            "25 claude unknown unlinked in /usr/bin/kitty at Project unavailable: Claude · pts/7\n");
  const auto found = scan();
  EXPECT_EQ(found[0].transcriptReference, kSecond);
  EXPECT_EQ(found[0].since, WallTime(std::chrono::seconds(5)));
}

// The path as it is, for whoever goes there; the title is one line.
TEST_F(ExternalAgentsTest, AFolderKeepsItsRealPath) {
  agent({.pid = 20, .comm = "claude", .folder = "/w/two\nlines"});
  agent({.pid = 21, .comm = "claude", .folder = "/w/really?"});
  const auto found = scan();
  EXPECT_EQ(found.at(0).context, "/w/two\nlines");
  EXPECT_EQ(found.at(0).title, "Claude · two?lines");
  EXPECT_EQ(found.at(1).context, "/w/really?");
}

// The file tells the very process where it can: by its start in ticks, by its pid in a namespace.
TEST_F(ExternalAgentsTest, ASessionFileIsToldByTheStartOfItsProcess) {
  const auto file = [&](int pid, std::string_view start, double startedAt, std::string_view more) {
    home_.write(fmt::format(".claude/sessions/{}.json", pid),
                fmt::format(R"({{"pid":{},"sessionId":"{}","startedAt":{},"procStart":"{}"{}}})", pid, kFirst,
                            startedAt, start, more));
  };
  const double start = (static_cast<double>(ProcFolder::kBootTime) + 1) * 1000;
  for (const int pid : {20, 21, 22, 23, 24}) agent({.pid = pid, .comm = "claude"});
  file(20, "100", start + 60'000, R"(,"status":"busy")");  // ready late, on a busy machine
  file(21, "101", start, R"(,"status":"busy")");           // of an earlier process
  file(7, "100", 0, R"(,"status":"waiting")");
  proc_.status(22, "Name:\tclaude\nNSpid:\t22\t300\t7\nThreads:\t1\n");
  file(23, "100", start, R"(,"entrypoint":"sdk-cli")");  // prints
  file(24, "100", start, R"(,"entrypoint":"cli")");
  std::string states;
  for (const auto& agent : scan())
    states += std::string(stateName(agent.state)) + " " + agent.transcriptKind.value_or("none") + "; ";
  EXPECT_EQ(states, "working id; unknown none; blocked id; working id; unknown id; ");
}

TEST_F(ExternalAgentsTest, FallsBackOnPsAndSaysWhenThatFailsToo) {
  agent({.pid = 20, .comm = "claude"});
  const auto usual = scan();
  const std::string text = *processes_.table() + "\n";
  processes_.rowsHidden = processes_.tableHidden = true;
  EXPECT_THROW(scan(), Failure);
  std::vector<std::string> asked;
  runPs_ = [&](const std::vector<std::string>& arguments, std::stop_token) {
    asked = arguments;
    return text;
  };
  EXPECT_EQ(scan(), usual);
  EXPECT_EQ(asked, (std::vector<std::string>{"-axo", "pid=,ppid=,uid=,stat=,tty=,lstart=,comm="}));
  stop_.request_stop();
  EXPECT_THROW(scan(), Cancelled);
}

TEST(ProcessTableText, IsParsedOrDroppedLineByLine) {
  const std::string good = "  12   1 501 Ss   pts/3    Sun Nov  2 21:51:10 2026 /opt/my apps/claude  ";
  const auto processes = ExternalAgents::processes(
      good +
          "\n13 1 501 Z ?? a b c d e claude\n14 1 501 S ?? a b c d e\nx 1 501 S ?? a b c d e f\n"
          "15 y 501 S ?? a b c d e f\n16 1 z S ?? a b c d e f\n17 1 0 R+ ?? a b c d e sh\n\n",
      std::nullopt);
  ASSERT_EQ(processes.size(), 3u);
  EXPECT_EQ(processes[0],
            (ExternalProcess{12, 1, "Sun Nov 2 21:51:10 2026", "/opt/my apps/claude", "pts/3", {}, 501}));
  EXPECT_EQ(processes[0].provider(), "claude");
  EXPECT_EQ(processes[1].uid, std::nullopt);
  EXPECT_EQ(ExternalAgents::processes(good + "\n17 1 0 R ?? a b c d e sh", 501).size(), 1u);
}

TEST(ProcessTableText, OpenFilesNeedWritingForATranscript) {
  const std::string path = fmt::format("/h/sessions/rollout-x-{}.jsonl", kFirst);
  const auto files =
      ExternalAgents::openFiles("fcwd\nn/w/api\nf3\nar\nn" + path + "\nf4\naw\nn" + path + "\nf5\nn" + path +
                                "\nf6\nau\nn/x.jsonl\nau\nn" + path + "2\nn\n\nzjunk");
  EXPECT_EQ(files.folder, "/w/api");
  EXPECT_EQ(files.transcripts, std::vector<std::string>{path});
  EXPECT_EQ(ExternalAgents::openFiles("").folder, "Project unavailable");
}

TEST(ProcessTableText, StartDatesComeBack) {
  const TemporaryFolder none;
  NativeProcesses processes(none.path());
  for (const std::int64_t seconds : {1'790'000'001, 1'772'000'000, 86'400 * 200}) {
    const std::string text = processes.startString(seconds);
    EXPECT_EQ(ExternalAgents::startDate("  " + text + " "), WallTime{std::chrono::seconds(seconds)}) << text;
  }
  EXPECT_EQ(ExternalAgents::startDate("Sun 22 Nov 21:51:10 2026"),
            ExternalAgents::startDate("Sun Nov 22  21:51:10 2026"));
  for (const char* bad :
       {"", "Sun Nov 22 21:51 2026", "Sun Nov 31 21:51:10 2026", "Son Nov 22 21:51:10 2026",
        "Sun Nov 22 24:51:10 2026", "Sun Nov 22 21:51:10 99999999999", "Sun Nov -2 1:1:1 2026", "a b c d e"})
    EXPECT_EQ(ExternalAgents::startDate(bad), kDistantPast) << bad;
}

}  // namespace
}  // namespace ostrel
