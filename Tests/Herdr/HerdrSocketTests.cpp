#include <sys/resource.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include "Herdr/HerdrEvents.h"
#include "Herdr/HerdrProtocol.h"
#include "Herdr/HerdrSocket.h"
#include "Runtime/Failure.h"
#include "Support/Failures.h"
#include "Support/SocketStandIn.h"
#include "Support/StrangersSocket.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::literals;

using Server = SocketStandIn;
using Peer = SocketStandIn::Peer;

// A request line, parsed; null at the end.
Json receive(Peer& peer) {
  try {
    std::string line;
    while (!line.ends_with('\n')) line += peer.take(1);
    return *json::parse(line);
  } catch (const Server::Gone&) {
    return {};
  }
}

// Runs tasks on a loop of its own; each ends with a text: its result, or the words of its failure.
class HerdrSocketTest : public testing::Test {
 protected:
  static Task<void> noted(Task<std::string> task, std::optional<std::string>& end) {
    try {
      end = co_await std::move(task);
    } catch (const Failure& failure) {
      end = failure.message();
    }
  }
  // Real time passes until the end, virtual time does not.
  std::string run(Task<std::string> task) {
    std::optional<std::string> end;
    tasks_.start(noted(std::move(task), end));
    EXPECT_TRUE(loop_.waitUntil([&] { return end.has_value(); }));
    return end.value_or("(no end)");
  }
  static Task<std::string> lines(std::string path, int count) {
    HerdrSocket::Wire wire(path);
    std::string all;
    for (int i = 0; i < count; ++i) all += co_await wire.next(Duration::max()) + "|";
    co_return all;
  }
  static Task<std::string> listening(std::string path, int& subscribed, int& received) {
    co_await HerdrSocket::events(
        path, HerdrEvents::plainSubscriptions(), [&] { ++subscribed; }, [&](const Json&) { ++received; });
    co_return "(it ended)";
  }
  static Task<std::string> requesting(std::string path) {
    co_return json::dump(co_await HerdrSocket::request(path, "ping", Json::object()));
  }

  VirtualLoop loop_;
  TaskScope tasks_{loop_};
};

TEST_F(HerdrSocketTest, LinesAreCutWhereverTheyArriveAndOverlongOnesRefused) {
  Server server([](Peer s, int) {
    for (const char c : "split\none more\n\nlast"s) s.raw({&c, 1});
    s.raw(std::string(9'000'000, 'x'));
  });
  for (const std::string& path : {"relative"s, "/" + std::string(103, 'x')})
    EXPECT_EQ(run(lines(path, 1)), "Invalid Herdr socket path.");
  EXPECT_EQ(run(lines("/" + std::string(102, 'x'), 1)), "Herdr socket is unavailable.");
  EXPECT_EQ(run(lines(server.socket, 3)), "split|one more||");
  EXPECT_EQ(run(lines(server.socket, 4)), "Herdr response exceeded its size limit.");
}

TEST_F(HerdrSocketTest, ARequestHasAConnectionOfItsOwnAndThreeSeconds) {
  Json asked;
  Server server([&](Peer s, int number) {
    Json heard = receive(s);
    if (number == 0) asked = std::move(heard);
    if (number == 0) s.raw("{\"id\":\"ping\",\"result\":{\"protocol\":20}}\n");
    if (number == 1) s.raw("{\"error\":{\"code\":\"pane_not_found\",\"message\":\"gone\\nfor good\"}}\n");
    if (number == 3) receive(s);  // says nothing
  });
  EXPECT_EQ(run(requesting(server.socket)), R"({"protocol":20})");
  EXPECT_EQ(asked["method"], "ping");
  EXPECT_EQ(run(requesting(server.socket)), "gone") << "Herdr's own words, one line";
  EXPECT_EQ(run(requesting(server.socket)), "Herdr disconnected.");
  std::optional<std::string> end;
  tasks_.start(noted(requesting(server.socket), end));
  loop_.waitUntil([&] { return end.has_value(); }, 50ms);
  loop_.runFor(2999ms);
  EXPECT_FALSE(end);
  loop_.runFor(1ms);
  EXPECT_EQ(end, "Herdr socket timed out.");
}

TEST_F(HerdrSocketTest, EventsArriveUntilTheStreamBreaksOrTheTaskIsCancelled) {
  Json subscription;
  Server server([&](Peer s, int number) {
    subscription = receive(s);
    s.raw("{\"result\":{}}\n{\"event\":1}\n[1]\n{\"result\":{}}\n{\"event\":null}\n");
    if (number == 0) s.raw("not json\n");
    receive(s);
  });
  int subscribed = 0;
  int received = 0;
  EXPECT_EQ(run(listening(server.socket, subscribed, received)), "Herdr sent an event that is no JSON.");
  EXPECT_EQ(subscribed, 1);
  EXPECT_EQ(received, 2);
  EXPECT_EQ(subscription["params"]["subscriptions"].size(), 6u);
  std::optional<std::string> end;
  tasks_.start(noted(listening(server.socket, subscribed, received), end));
  ASSERT_TRUE(loop_.waitUntil([&] { return received == 4; }));
  tasks_.cancel();
  loop_.runUntilIdle();
  EXPECT_EQ(tasks_.running(), 0u);
}

TEST_F(HerdrSocketTest, AnotherUsersServerIsToldNothing) {
  if (!StrangersSocket::possible()) GTEST_SKIP() << "only root can listen as another user";
  TemporaryFolder folder;
  StrangersSocket stranger(folder.path() / "s");
  int subscribed = 0;
  int received = 0;
  EXPECT_EQ(run(requesting(folder.path() / "s")), "The Herdr socket belongs to another user.");
  EXPECT_EQ(run(listening(folder.path() / "s", subscribed, received)),
            "The Herdr socket belongs to another user.");
  EXPECT_EQ(stranger.heard(), "");
}

}  // namespace
}  // namespace ostrel
