#include <set>

#include <gtest/gtest.h>

#include "App/OstrelPreferences.h"
#include "App/OstrelSetting.h"
#include "App/OtherCopies.h"
#include "App/ResidentProgram.h"
#include "Platform/Linux/NativeProcesses.h"
#include "Support/MemoryPreferences.h"
#include "Support/ProcFolder.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

using Sent = std::vector<std::string>;

constexpr std::int32_t kOwnPid = 100;
constexpr char kProgram[] = "/opt/ostrel/libexec/Ostrel";
// A made-up process table, in which processes may be another user's or under a debugger.
class FakeProcesses final : public NativeProcesses {
 public:
  using NativeProcesses::NativeProcesses;
  std::optional<std::uint32_t> uid(std::int32_t pid) override {
    return foreign.contains(pid) ? ownUid() + 1 : ownUid();
  }
  bool traced(std::int32_t pid) override { return debugged.contains(pid); }
  std::set<std::int32_t> foreign, debugged;
};

class RecordedSignals final : public Signals {
 public:
  Sent sent;
  bool terminate(std::int32_t pid) override {
    sent.push_back("TERM " + std::to_string(pid));
    return true;
  }
  bool kill(std::int32_t pid) override {
    sent.push_back("KILL " + std::to_string(pid));
    return true;
  }
};

class OtherCopiesTest : public testing::Test {
 protected:
  OtherCopiesTest() { put(kOwnPid, {"Ostrel"}, kProgram, 5); }
  void put(int pid, const Sent& arguments = {"Ostrel"}, const std::string& path = kProgram,
           std::uint64_t ticks = 1, char state = 'S') {
    proc.put({.pid = pid,
              .comm = "Ostrel",
              .ticks = ticks,
              .state = state,
              .arguments = arguments,
              .executable = path});
  }
  ProcFolder proc;
  FakeProcesses processes{proc.path()};
  RecordedSignals signals;
  VirtualLoop loop;
  OtherCopies copies{processes, signals, loop, kOwnPid};
};

TEST_F(OtherCopiesTest, OnlyTheUsersOtherResidentCopiesAreAskedToEnd) {
  for (const int pid : {101, 201}) put(pid);
  processes.foreign = {201};
  put(102, {"Ostrel"}, "/home/x/Ostrel");
  put(103, {"--odd-path", "file"});
  put(104, {});
  put(202, {"Ostrel"}, "/opt/ostrel/libexec/ostrel");
  put(203, {"Ostrel"}, "/usr/bin/Ostrel2");
  put(204, {"Ostrel"}, "");
  put(205, {"/opt/ostrel/bin/Ostrel", "--permission-hook"});
  put(206, {"Ostrel", "x", "--"});
  put(207, {"Ostrel"}, kProgram, 1, 'Z');
  put(208, {"Ostrel"}, kProgram, 6);  // started after this one, which it will ask itself
  EXPECT_FALSE(copies.quitOtherCopies());
  EXPECT_EQ(signals.sent, (Sent{"TERM 101", "TERM 102", "TERM 103", "TERM 104"}));
}

TEST_F(OtherCopiesTest, AfterASecondWhatRemainsIsKilled) {
  for (const int pid : {101, 102, 103, 104}) put(pid);
  EXPECT_FALSE(copies.quitOtherCopies());
  signals.sent.clear();
  // 101 ended; 102's number went to another process; 103 only waits for its parent; 104 doesn't listen. 105
  // is a copy that started later: the next one asks it.
  proc.remove(101);
  put(102, {"Ostrel"}, kProgram, 2);
  put(103, {"Ostrel"}, kProgram, 1, 'Z');
  put(105);
  loop.runFor(999ms);
  EXPECT_EQ(signals.sent, Sent());
  loop.runFor(1ms);
  EXPECT_EQ(signals.sent, (Sent{"KILL 104"}));
}

TEST_F(OtherCopiesTest, ACopyUnderADebuggerStays) {
  for (const int pid : {101, 102}) put(pid);
  processes.debugged = {kOwnPid, 102};
  EXPECT_TRUE(copies.quitOtherCopies());
  loop.runFor(5s);
  EXPECT_EQ(signals.sent, Sent());

  // One that is none of our business doesn't count.
  put(102, {"Ostrel", "--x"});
  EXPECT_FALSE(copies.quitOtherCopies());
  EXPECT_EQ(signals.sent, (Sent{"TERM 101"}));
}

class ResidentProgramTest : public OtherCopiesTest {
 protected:
  // What a run with these arguments did, in order.
  Sent launch(const std::vector<std::string>& arguments) {
    MemoryDomains domains;
    OstrelPreferences preferences(domains, arguments, std::nullopt, kOwnPid);
    signals.sent.clear();
    Sent& done = signals.sent;
    const auto starts = [&](const char* what) {
      EXPECT_TRUE(preferences.shared().boolean(OstrelSetting::openOnHover)) << "before the preferences stand";
      EXPECT_NE(preferences.shared().boolean("ostrel.sharedPreferencesMigrated"), preferences.isFixture());
      done.push_back(what);
    };
    ResidentProgram program(preferences, copies, arguments,
                            {.showRunning = [this] { return runsAlready; },
                             .startDiscovery = [&] { starts("discovery"); },
                             .checkDiscovery = [&] { starts("check"); },
                             .stopDiscovery = [&] { done.push_back("stop"); }});
    done.push_back(program.launch() ? "launched" : "gave way");
    program.terminate();
    return std::move(done);
  }
  bool runsAlready = false;  // a copy like this one, which shows itself when asked
};

TEST_F(ResidentProgramTest, EachKindOfRunDoesItsSteps) {
  put(101);
  EXPECT_EQ(launch({"Ostrel"}), (Sent{"TERM 101", "discovery", "launched", "stop"}));
  EXPECT_EQ(launch({"Ostrel", "--check-managed-fixture"}), (Sent{"launched"}));
  EXPECT_EQ(launch({"Ostrel", "--check-discovery-live"}), (Sent{"check", "launched"}));
  EXPECT_EQ(launch({"--check-odd-path"}), (Sent{"TERM 101", "launched"})) << "a fixture run, but no test run";
  runsAlready = true;
  EXPECT_EQ(launch({"Ostrel"}), (Sent{"gave way"})) << "started again: the one that runs is shown";
  EXPECT_EQ(launch({"Ostrel", "file"}), (Sent{"TERM 101", "discovery", "launched", "stop"}));
  runsAlready = false;
  processes.debugged = {101};
  EXPECT_EQ(launch({"Ostrel"}), (Sent{"gave way"}));
  EXPECT_EQ(launch({"Ostrel", "--x"}), (Sent{"discovery", "launched", "stop"}));
}

}  // namespace
}  // namespace ostrel
