#include <atomic>
#include <mutex>

#include <gtest/gtest.h>

#include "Client/LocalDiscovery.h"
#include "Runtime/Failure.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::literals;

class FakeExits final : public ProcessExits {
 public:
  Registration watch(std::int32_t pid, std::move_only_function<void()> exited) override {
    watched[pid] = std::move(exited);
    return Registration([this, pid] { watched.erase(pid); });
  }
  std::map<std::int32_t, std::move_only_function<void()>> watched;
};

class FakeFiles final : public FileWatcher {
 public:
  Registration watchFolder(const std::filesystem::path& folder, Changed handler) override {
    if (!exists) return {};
    watched = folder;
    changed = std::make_shared<Changed>(std::move(handler));
    return Registration([this] { changed.reset(); });
  }
  void fire(std::string_view name) {
    const auto handler = changed;  // the watch may be reset in its own callback
    if (handler) (*handler)(name);
  }
  bool exists = true;
  std::filesystem::path watched;
  std::shared_ptr<Changed> changed;
};

HerdrAgent agentOf(std::int64_t pid) {
  HerdrAgent agent;
  agent.session = "external";
  agent.paneID = std::to_string(pid);
  agent.externalProcess = ExternalProcess{};
  agent.externalProcess->pid = pid;
  return agent;
}

// A discovery over fakes. The scan runs on a real thread, so each step waits for it; time is virtual.
class LocalDiscoveryTest : public testing::Test {
 protected:
  std::vector<HerdrAgent> scan() {
    ++begun_;
    std::lock_guard lock(mutex_);
    if (!problem_.empty()) throw Failure(problem_);
    return found_;
  }
  void find(std::vector<HerdrAgent> agents, const std::string& problem = {}) {
    std::lock_guard lock(mutex_);
    found_ = std::move(agents);
    problem_ = problem;
  }
  bool scansReach(std::uint64_t count) {
    return loop_.waitUntil([&] { return *discovery_.scans() >= count; }) && *discovery_.scans() == count;
  }
  // Starts, and lets the second scan pass that follows the first sight of the sessions folder.
  void start() {
    discovery_.start();
    ASSERT_TRUE(scansReach(1));
    loop_.runFor(12ms);
    ASSERT_TRUE(scansReach(2));
  }

  std::atomic<int> begun_ = 0;
  std::mutex mutex_;
  std::vector<HerdrAgent> found_;
  std::string problem_;
  VirtualLoop loop_;
  BackgroundPool pool_;
  FakeExits exits_;
  FakeFiles files_;
  LocalDiscovery discovery_{
      loop_, pool_, {exits_, files_}, [this](std::stop_token) { return scan(); }, "/sessions"};
};

TEST_F(LocalDiscoveryTest, ScansEveryFiveSecondsAndSoonerWhenTheKernelTells) {
  find({agentOf(7)});
  start();
  EXPECT_EQ(*discovery_.agents(), std::vector{agentOf(7)});
  EXPECT_EQ(files_.watched, "/sessions");
  ASSERT_TRUE(exits_.watched.contains(7));

  loop_.runFor(5011ms);
  EXPECT_TRUE(scansReach(2));
  loop_.runFor(1ms);
  EXPECT_TRUE(scansReach(3));

  // A burst folds into one scan; names that are no session files don't count.
  files_.fire("7.json.tmp");
  loop_.runFor(1s);
  EXPECT_TRUE(scansReach(3));
  for (int i = 0; i < 5; ++i) {
    files_.fire("7.json");
    loop_.runFor(2ms);
  }
  EXPECT_TRUE(scansReach(3));
  loop_.runFor(2ms);
  EXPECT_TRUE(scansReach(4));
  loop_.runFor(1s);
  EXPECT_TRUE(scansReach(4));
}

TEST_F(LocalDiscoveryTest, WatchesFollowTheAgents) {
  find({agentOf(7), agentOf(8)});
  start();
  EXPECT_EQ(exits_.watched.size(), 2u);
  find({agentOf(8)});
  discovery_.rescan();
  loop_.runFor(12ms);
  EXPECT_TRUE(scansReach(3));
  EXPECT_TRUE(exits_.watched.size() == 1 && exits_.watched.contains(8));

  // The folder goes: a scan follows, and the watch comes back with the folder.
  files_.exists = false;
  files_.fire("");
  EXPECT_FALSE(files_.changed);
  loop_.runFor(12ms);
  EXPECT_TRUE(scansReach(4));
  files_.exists = true;
  loop_.runFor(5012ms);
  EXPECT_TRUE(scansReach(5));
  EXPECT_TRUE(files_.changed);
}

TEST_F(LocalDiscoveryTest, AFailedScanEmptiesTheListAndIsRetried) {
  find({agentOf(7)});
  start();
  int changes = 0;
  const Subscription subscription = discovery_.agents().observe([&] { ++changes; });
  find({}, "no table");
  loop_.runFor(5012ms);
  EXPECT_TRUE(scansReach(3));
  EXPECT_TRUE(discovery_.agents()->empty());
  EXPECT_EQ(*discovery_.error(), "Local discovery unavailable: no table");
  EXPECT_EQ(exits_.watched.size(), 1u) << "watches stay";
  find({agentOf(7)});
  exits_.watched.at(7)();
  loop_.runFor(12ms);
  EXPECT_TRUE(scansReach(4));
  EXPECT_FALSE(*discovery_.error());
  loop_.runFor(5012ms);
  EXPECT_TRUE(scansReach(5));
  EXPECT_EQ(changes, 2) << "an unchanged list is not announced";
}

TEST_F(LocalDiscoveryTest, ASignalDuringAScanIsNotLost) {
  files_.exists = false;
  std::unique_lock hanging(mutex_);
  discovery_.start();
  discovery_.start();
  ASSERT_TRUE(loop_.waitUntil([&] { return begun_ == 1; }));
  discovery_.rescan();
  hanging.unlock();
  ASSERT_TRUE(scansReach(1));
  loop_.runFor(12ms);
  EXPECT_TRUE(scansReach(2));
  loop_.runFor(1s);
  EXPECT_EQ(begun_, 2);
}

}  // namespace
}  // namespace ostrel
