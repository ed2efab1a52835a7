// A second start, over the real socket.
#include <thread>

#include <gtest/gtest.h>

#include "App/RunningCopy.h"
#include "Support/StrangersSocket.h"
#include "Support/TemporaryFolder.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

struct RunningCopyTest : testing::Test {
  Json identity(const char* version, const char* display = ":0") {
    const Environment environment{
        .variables = {{"DISPLAY", display}}, .home = folder.path(), .arguments = {}};
    return RunningCopy::identity("/opt/ostrel/libexec/Ostrel", version, environment);
  }
  // What a new copy hears, while the running one goes on.
  bool asks(const Json& who) {
    std::atomic<int> answer = -1;
    std::thread other([&] { answer = RunningCopy::ask(path, who) ? 1 : 0; });
    loop.waitUntil([&] { return answer >= 0; });
    other.join();
    return answer == 1;
  }
  const TemporaryFolder folder;
  const std::filesystem::path path = folder.path() / "data" / "program.sock";
  VirtualLoop loop;
  int shown = 0;
};

TEST_F(RunningCopyTest, OnlyItsLikeIsShownAndGivesWay) {
  EXPECT_FALSE(RunningCopy::ask(path, identity("1"))) << "nobody runs";
  auto first = std::make_unique<RunningCopy>(loop, path, identity("1"), [&] { ++shown; });
  first->start();
  EXPECT_TRUE(asks(identity("1")));
  EXPECT_TRUE(asks(identity("1")));
  EXPECT_EQ(shown, 2);
  EXPECT_FALSE(asks(identity("2"))) << "a new version replaces it";
  EXPECT_FALSE(asks(identity("1", ":1"))) << "its windows are elsewhere";
  EXPECT_FALSE(asks(Json("x")));
  EXPECT_EQ(shown, 2);
  RunningCopy second(loop, path, identity("2"), [&] { shown += 10; });
  second.start();
  first.reset();
  EXPECT_TRUE(asks(identity("2"))) << "the end of the first took nothing from the second";
  EXPECT_EQ(shown, 12);
}

TEST_F(RunningCopyTest, NobodyIsBelievedWhoIsSilentOrAnotherUser) {
  std::filesystem::create_directories(path.parent_path());
  RunningCopy hung(loop, path, identity("1"), [&] { ++shown; });
  hung.start();
  EXPECT_FALSE(RunningCopy::ask(path, identity("1"))) << "its loop stands still";
  if (!StrangersSocket::possible()) GTEST_SKIP() << "only root can be another user";
  StrangersSocket stranger(path.string());
  EXPECT_FALSE(RunningCopy::ask(path, identity("1")));
  EXPECT_EQ(stranger.heard(), "");
}

}  // namespace
}  // namespace ostrel
