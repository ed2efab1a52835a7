#include <sys/resource.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include "Herdr/HerdrSocket.h"
#include "Support/Failures.h"
#include "Support/SocketStandIn.h"

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

TEST(HerdrSocket, LinesAreCutWhereverTheyArriveAndOverlongOnesRefused) {
  Server server([](Peer s, int) {
    for (const char c : "split\none more\n\nlast"s) s.raw({&c, 1});
    s.raw(std::string(9'000'000, 'x'));
  });
  for (const std::string& path : {"relative"s, "/" + std::string(103, 'x')})
    EXPECT_EQ(failureOf([&] { HerdrSocket::Wire wire(path); }), "Invalid Herdr socket path.");
  EXPECT_EQ(failureOf([] { HerdrSocket::Wire("/" + std::string(102, 'x')); }),
            "Herdr socket is unavailable.");
  HerdrSocket::Wire wire(server.socket);
  const std::stop_token never;
  EXPECT_EQ(wire.next({}, never), "split");
  EXPECT_EQ(wire.next({}, never), "one more");
  EXPECT_EQ(wire.next({}, never), "");
  EXPECT_EQ(failureOf([&] { wire.next({}, never); }), "Herdr response exceeded its size limit.");
}

TEST(HerdrSocket, SilenceEndsAtTheDeadlineAndStoppingEndsAnyWait) {
  std::stop_source stop;
  Server server([&](Peer s, int) {
    receive(s);
    stop.request_stop();
    receive(s);
  });
  HerdrSocket::Wire wire(server.socket);
  EXPECT_EQ(failureOf([&] { wire.next(std::chrono::steady_clock::now() + 1ms, {}); }),
            "Herdr socket timed out.");
  wire.send("x", "y", Json::object());
  EXPECT_THROW(wire.next({}, stop.get_token()), Cancelled);

  Server closing([](Peer s, int) { receive(s); });
  EXPECT_EQ(failureOf([&] { HerdrSocket::read(closing.socket, "p", "s", {}); }), "Herdr disconnected.");
}

TEST(HerdrSocket, EventsArriveUntilTheStreamBreaks) {
  Json subscription;
  Server server([&](Peer s, int) {
    receive(s);
    s.raw("{\"result\":{\"protocol\":7}}\n");
    subscription = receive(s);
    s.raw("{\"result\":{}}\n{\"event\":1}\n[1]\n{\"result\":{}}\n{\"event\":null}\nnot json\n");
  });
  int received = 0;
  const std::vector<std::string> panes = {"p1", "p2"};
  EXPECT_EQ(failureOf([&] { HerdrSocket::events(server.socket, 7, panes, [&] { ++received; }, {}); }),
            "Herdr sent an event that is no JSON.");
  EXPECT_EQ(received, 3);
  const Json& list = subscription["params"]["subscriptions"];
  ASSERT_EQ(list.size(), 8u);
  EXPECT_EQ(list[0], (Json{{"type", "pane.created"}}));
  EXPECT_EQ(list[7], (Json{{"type", "pane.agent_status_changed"}, {"pane_id", "p2"}}));

  for (const auto pong : {R"({"result":{"protocol":8}})", R"({"result":{"protocol":"7"}})"}) {
    Server newer([&](Peer s, int) {
      receive(s);
      s.raw(pong + "\n"s);
      EXPECT_TRUE(receive(s).is_null()) << "no subscription is sent";
    });
    EXPECT_EQ(failureOf([&] { HerdrSocket::events(newer.socket, 7, panes, [] {}, {}); }),
              "Herdr API version changed.");
  }
}

// What the system refuses is said in words too.
TEST(HerdrSocket, SaysWhatTheSystemRefused) {
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  UniqueFd peer(ends[0]);
  HerdrSocket::Wire wire{UniqueFd(ends[1])};
  rlimit usual{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &usual), 0);
  const rlimit none{1, usual.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  const std::string opening = failureOf([] { HerdrSocket::Wire("/nowhere"); });
  const std::string reading = failureOf([&] { wire.next(std::nullopt, {}); });  // too many to wait for
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &usual), 0);
  EXPECT_EQ(opening, "Cannot open Herdr socket.");
  EXPECT_EQ(reading, "Herdr socket read failed.");
  peer.reset();
  EXPECT_EQ(failureOf([&] { wire.send("read", "pane.read", Json::object()); }), "Herdr socket write failed.");
}

}  // namespace
}  // namespace ostrel
