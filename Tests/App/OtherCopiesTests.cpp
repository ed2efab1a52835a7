#include <algorithm>

#include <gtest/gtest.h>

#include "App/OstrelPreferences.h"
#include "App/OstrelSetting.h"
#include "App/OtherCopies.h"
#include "App/ResidentProgram.h"
#include "Platform/Linux/NativeProcesses.h"
#include "Support/MemoryPreferences.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

using Sent = std::vector<std::string>;

constexpr std::int32_t kOwnPid = 100;
constexpr std::uint32_t kOwnUid = 1000;

struct FakeProcess {
  std::int32_t pid;
  std::string path = "/opt/ostrel/libexec/Ostrel";
  std::vector<std::string> arguments = {"Ostrel"};
  std::uint32_t uid = kOwnUid;
  bool traced = false;
  bool zombie = false;
  std::uint64_t startTicks = 1;
};

class FakeProcesses final : public NativeProcesses {
 public:
  std::vector<FakeProcess> list;

  std::vector<ProcessRow> rows(NameTest) override {
    std::vector<ProcessRow> result;
    for (const FakeProcess& process : list) {
      ProcessRow row;
      row.pid = process.pid;
      row.zombie = process.zombie;
      row.startTicks = process.startTicks;
      result.push_back(row);
    }
    return result;
  }
  std::optional<std::uint32_t> uid(std::int32_t pid) override { return find(pid).uid; }
  std::vector<std::string> argumentList(std::int32_t pid) override { return find(pid).arguments; }
  std::string executablePath(std::int32_t pid) override { return find(pid).path; }
  bool traced(std::int32_t pid) override { return find(pid).traced; }
  std::uint32_t ownUid() override { return kOwnUid; }

 private:
  const FakeProcess& find(std::int32_t pid) const { return *std::ranges::find(list, pid, &FakeProcess::pid); }
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
  FakeProcesses processes;
  RecordedSignals signals;
  VirtualLoop loop;
  OtherCopies copies{processes, signals, loop, kOwnPid};
};

TEST_F(OtherCopiesTest, OnlyTheUsersOtherResidentCopiesAreAskedToEnd) {
  processes.list = {
      {.pid = kOwnPid, .startTicks = 5},
      {.pid = 101},
      {.pid = 102, .path = "/home/x/Ostrel"},
      {.pid = 103, .arguments = {"--odd-path", "file"}},
      {.pid = 104, .arguments = {}},
      {.pid = 201, .uid = 0},
      {.pid = 202, .path = "/opt/ostrel/libexec/ostrel"},
      {.pid = 204, .path = "/usr/bin/Ostrel2"},
      {.pid = 205, .path = ""},
      {.pid = 207, .arguments = {"/opt/ostrel/bin/Ostrel", "--permission-hook"}},
      {.pid = 208, .arguments = {"Ostrel", "x", "--"}},
      {.pid = 209, .zombie = true},
  };
  EXPECT_FALSE(copies.quitOtherCopies());
  EXPECT_EQ(signals.sent, (Sent{"TERM 101", "TERM 102", "TERM 103", "TERM 104"}));
}

TEST_F(OtherCopiesTest, AfterASecondWhatRemainsIsKilled) {
  processes.list = {{.pid = 101}, {.pid = 102}, {.pid = 103}, {.pid = 104}};
  EXPECT_FALSE(copies.quitOtherCopies());
  signals.sent.clear();
  // 101 ended; 102's number went to another process; 103 only waits for its parent; 104 doesn't listen. 105
  // is a copy that started later: the next one asks it.
  processes.list = {{.pid = 102, .startTicks = 2}, {.pid = 103, .zombie = true}, {.pid = 104}, {.pid = 105}};
  loop.runFor(999ms);
  EXPECT_EQ(signals.sent, Sent());
  loop.runFor(1ms);
  EXPECT_EQ(signals.sent, (Sent{"KILL 104"}));
}

TEST_F(OtherCopiesTest, ACopyUnderADebuggerStays) {
  processes.list = {{.pid = 101}, {.pid = 102, .traced = true}, {.pid = 103}};
  EXPECT_TRUE(copies.quitOtherCopies());
  loop.runFor(5s);
  EXPECT_EQ(signals.sent, Sent());

  // One that is none of our business doesn't count.
  processes.list = {{.pid = 101},
                    {.pid = 102, .arguments = {"Ostrel", "--x"}, .traced = true},
                    {.pid = kOwnPid, .traced = true, .startTicks = 5}};
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
                            {.startDiscovery = [&] { starts("discovery"); },
                             .checkDiscovery = [&] { starts("check"); },
                             .stopDiscovery = [&] { done.push_back("stop"); }});
    done.push_back(program.launch() ? "launched" : "gave way");
    program.terminate();
    return std::move(done);
  }
};

TEST_F(ResidentProgramTest, EachKindOfRunDoesItsSteps) {
  processes.list = {{.pid = 101}};
  EXPECT_EQ(launch({"Ostrel"}), (Sent{"TERM 101", "discovery", "launched", "stop"}));
  EXPECT_EQ(launch({"Ostrel", "--check-managed-fixture"}), (Sent{"launched"}));
  EXPECT_EQ(launch({"Ostrel", "--check-discovery-live"}), (Sent{"check", "launched"}));
  EXPECT_EQ(launch({"--check-odd-path"}), (Sent{"TERM 101", "launched"})) << "a fixture run, but no test run";
  processes.list = {{.pid = 101, .traced = true}};
  EXPECT_EQ(launch({"Ostrel"}), (Sent{"gave way"}));
  EXPECT_EQ(launch({"Ostrel", "--x"}), (Sent{"discovery", "launched", "stop"}));
}

}  // namespace
}  // namespace ostrel
