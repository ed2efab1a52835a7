#include <atomic>
#include <mutex>

#include <gtest/gtest.h>

#include "Console/ListProgram.h"
#include "Runtime/Failure.h"
#include "Support/MemoryPreferences.h"
#include "Support/NoPorts.h"
#include "Support/VirtualLoop.h"

namespace ostrel::console {
namespace {

using namespace std::literals;
using Command = Options::Command;

class ListProgramTest : public testing::Test {
 protected:
  // What the next scans find: a title for each agent; a failure for "!".
  void find(std::vector<std::string> titles) {
    std::lock_guard lock(mutex_);
    titles_ = std::move(titles);
  }
  std::vector<HerdrAgent> scan() {
    std::lock_guard lock(mutex_);
    ++scans_;
    std::vector<HerdrAgent> agents;
    for (const std::string& title : titles_) {
      if (title == "!") throw Failure("no table");
      HerdrAgent agent;
      agent.session = "external";
      agent.paneID = std::to_string(agents.size()) + ":x";
      agent.title = title;
      agent.externalProcess = ExternalProcess{};
      agents.push_back(std::move(agent));
    }
    return agents;
  }
  void start(Options options) {
    program_.emplace(ListProgram::Parts{loop_, pool_, pool_, client_, transcripts_, preferences_}, options,
                     ListProgram::Output{[this](std::string_view text, const std::stop_token&) {
                                           std::lock_guard lock(mutex_);
                                           written_.emplace_back(text);
                                           return !broken_;
                                         },
                                         [this](std::string_view line) { complaints_.emplace_back(line); },
                                         [this](int status) { status_ = status; }, false});
    program_->start();
  }
  std::vector<std::string> written() {
    std::lock_guard lock(mutex_);
    return written_;
  }
  bool ends(int status) {
    return loop_.waitUntil([&] { return status_.has_value(); }) && status_ == status;
  }

  std::mutex mutex_;
  std::vector<std::string> titles_;
  std::atomic<std::uint64_t> scans_ = 0;
  std::vector<std::string> written_;
  std::atomic<bool> broken_ = false;
  std::vector<std::string> complaints_;
  std::optional<int> status_;
  VirtualLoop loop_;
  AgentTranscript transcripts_{Environment{}};
  MemoryPreferences preferences_;
  BackgroundPool pool_;
  NoExits exits_;
  NoFiles files_;
  NoServers servers_;
  // Answers nothing, where it is installed.
  struct Herdr final : NoHerdr {
    std::atomic<bool> installed = false;
    std::optional<std::filesystem::path> find() override {
      return installed ? std::optional<std::filesystem::path>("/bin/herdr") : std::nullopt;
    }
    std::string run(const std::filesystem::path&, const std::vector<std::string>&, Duration,
                    std::stop_token) override {
      throw Failure("It does not answer.");
    }
  } herdr_;
  HerdrClient client_{
      {loop_, pool_, exits_, files_, preferences_, servers_, herdr_, pool_},
      {.scanExternal = [this](std::stop_token) { return scan(); }, .claudeSessions = "/sessions"}};
  std::optional<ListProgram> program_;
};

TEST_F(ListProgramTest, AgentsPrintsTheFirstScanAndEnds) {
  find({"A", "B"});
  preferences_.set("agentTitle.8:external1:x", "My own title");
  start({Command::agents, false, 10s});
  ASSERT_TRUE(ends(0));
  EXPECT_EQ(written(), std::vector{"8:external0:x\tAgent\tunknown\tidle\tA\tLocal session\n"
                                   "8:external1:x\tAgent\tunknown\tidle\tMy own title\tLocal session\n"s});
}

TEST_F(ListProgramTest, AgentsSaysWhyThereIsNoList) {
  find({"!"});
  start({Command::agents, true, 10s});
  ASSERT_TRUE(ends(1));
  EXPECT_EQ(complaints_, std::vector{"Local discovery unavailable: no table"s});
  EXPECT_EQ(written(), std::vector{"{\"agents\":[],\"error\":\"Local discovery unavailable: no table\"}\n"s});
}

class ListBesideHerdr : public ListProgramTest, public testing::WithParamInterface<bool> {};

TEST_P(ListBesideHerdr, IsJoinedUnlessThePersonHasLeftIt) {
  find({"A"});
  herdr_.installed = true;
  preferences_.set("herdrReconnect", GetParam());
  start({Command::agents, true, 10s});
  ASSERT_TRUE(loop_.waitUntil([&] {
    loop_.runFor(10ms);  // the command takes real time
    return status_.has_value();
  }));
  EXPECT_EQ(json::parse(written().back())->contains("herdr"), GetParam());
}

INSTANTIATE_TEST_SUITE_P(, ListBesideHerdr, testing::Bool());

TEST_F(ListProgramTest, AgentsGivesUpWhenTheScanTakesTooLong) {
  std::unique_lock hanging(mutex_);
  start({Command::agents, false, 2500ms});
  loop_.runFor(2500ms);
  hanging.unlock();
  EXPECT_EQ(status_, 1);
  EXPECT_EQ(complaints_, std::vector{"The first scan took longer than 2.5 seconds."s});
}

TEST_F(ListProgramTest, WatchPrintsChangesOnly) {
  // Time goes on until it holds: scans take real time, the waits between them do not.
  const auto comes = [&](const std::function<bool()>& holds) {
    return loop_.waitUntil([&] {
      loop_.runFor(100ms);
      return holds();
    });
  };
  find({"A"});
  start({Command::watch, false, 10s});
  ASSERT_TRUE(comes([&] { return written().size() == 1 && scans_ >= 5; }));
  find({});
  ASSERT_TRUE(comes([&] { return written().size() == 2; }));
  EXPECT_EQ(written()[1], "\n");
  find({"!"});
  ASSERT_TRUE(comes([&] { return complaints_.size() == 1; }));
  EXPECT_FALSE(status_);

  find({"B"});
  broken_ = true;
  EXPECT_TRUE(comes([&] { return status_ == 0; })) << "nobody reads any more";
}

}  // namespace
}  // namespace ostrel::console
