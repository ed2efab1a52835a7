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

TEST_F(RunningCopyTest, AnotherUserShowsNothing) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  RunningCopy copy(loop, path, identity("1"), [&] { ++shown; });
  copy.start();
  for (const auto& open : {folder.path(), path.parent_path(), path})
    std::filesystem::permissions(open, std::filesystem::perms::all);
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  std::strcpy(address.sun_path, path.c_str());
  const std::string line = Json{{"show", identity("1")}}.dump() + "\n";
  for (const uid_t user : {0U, 65534U}) {
    const UniqueFd client(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(::seteuid(user), 0);
    const int connected =
        ::connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    ASSERT_EQ(::seteuid(0), 0);
    ASSERT_EQ(connected, 0);
    ::send(client.get(), line.data(), line.size(), MSG_NOSIGNAL);
    loop.runUntilIdle();
    EXPECT_EQ(shown, 1) << "the first is ours";
  }
}

}  // namespace
}  // namespace ostrel
