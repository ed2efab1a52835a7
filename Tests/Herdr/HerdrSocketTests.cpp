#include <atomic>
#include <cstring>
#include <functional>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

#include <gtest/gtest.h>

#include "Herdr/HerdrSocket.h"
#include "Support/Failures.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

using namespace std::literals;

// A server for one connection, scripted by the test; joined at the end.
class Server {
 public:
  using Script = std::function<void(Server&)>;

  explicit Server(Script script) : path_((folder_.path() / "s").string()) {
    listener_.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path_.data(), path_.size());
    EXPECT_EQ(::bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(listener_.get(), 1), 0);
    thread_ = std::thread([this, script = std::move(script)] {
      connection_.reset(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
      script(*this);
      connection_.reset();
    });
  }
  ~Server() { thread_.join(); }

  const std::string& path() const { return path_; }
  void send(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t sent = ::send(connection_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (sent <= 0) return;
      bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
  }
  // A request line, parsed; null at the end.
  Json receive() {
    std::string line;
    char byte = 0;
    while (::recv(connection_.get(), &byte, 1, 0) == 1) {
      if (byte == '\n') return *json::parse(line);
      line += byte;
    }
    return {};
  }

 private:
  TemporaryFolder folder_;
  std::string path_;
  UniqueFd listener_;
  UniqueFd connection_;
  std::thread thread_;
};

TEST(HerdrSocket, LinesAreCutWhereverTheyArriveAndOverlongOnesRefused) {
  Server server([](Server& s) {
    for (const char c : "split\none more\n\nlast"s) s.send({&c, 1});
    s.send(std::string(9'000'000, 'x'));
  });
  for (const std::string& path : {"relative"s, "/" + std::string(103, 'x')})
    EXPECT_EQ(failureOf([&] { HerdrSocket::Wire wire(path); }), "Invalid Herdr socket path.");
  EXPECT_EQ(failureOf([] { HerdrSocket::Wire("/" + std::string(102, 'x')); }),
            "Herdr socket is unavailable.");
  HerdrSocket::Wire wire(server.path());
  const std::stop_token never;
  EXPECT_EQ(wire.next({}, never), "split");
  EXPECT_EQ(wire.next({}, never), "one more");
  EXPECT_EQ(wire.next({}, never), "");
  EXPECT_EQ(failureOf([&] { wire.next({}, never); }), "Herdr response exceeded its size limit.");
}

TEST(HerdrSocket, SilenceEndsAtTheDeadlineAndStoppingEndsAnyWait) {
  std::stop_source stop;
  Server server([&](Server& s) {
    s.receive();
    stop.request_stop();
    s.receive();
  });
  HerdrSocket::Wire wire(server.path());
  EXPECT_EQ(failureOf([&] { wire.next(std::chrono::steady_clock::now() + 1ms, {}); }),
            "Herdr socket timed out.");
  wire.send("x", "y", Json::object());
  EXPECT_THROW(wire.next({}, stop.get_token()), Cancelled);

  Server closing([](Server& s) { s.receive(); });
  EXPECT_EQ(failureOf([&] { HerdrSocket::read(closing.path(), "p", "s", {}); }), "Herdr disconnected.");
}

TEST(HerdrSocket, EventsArriveUntilTheStreamBreaks) {
  Json subscription;
  Server server([&](Server& s) {
    s.receive();
    s.send("{\"result\":{\"protocol\":7}}\n");
    subscription = s.receive();
    s.send("{\"result\":{}}\n{\"event\":1}\n[1]\n{\"result\":{}}\n{\"event\":null}\nnot json\n");
  });
  int received = 0;
  const std::vector<std::string> panes = {"p1", "p2"};
  EXPECT_EQ(failureOf([&] { HerdrSocket::events(server.path(), 7, panes, [&] { ++received; }, {}); }),
            "Herdr sent an event that is no JSON.");
  EXPECT_EQ(received, 3);
  const Json& list = subscription["params"]["subscriptions"];
  ASSERT_EQ(list.size(), 8u);
  EXPECT_EQ(list[0], (Json{{"type", "pane.created"}}));
  EXPECT_EQ(list[7], (Json{{"type", "pane.agent_status_changed"}, {"pane_id", "p2"}}));

  for (const auto pong : {R"({"result":{"protocol":8}})", R"({"result":{"protocol":"7"}})"}) {
    Server newer([&](Server& s) {
      s.receive();
      s.send(pong + "\n"s);
      EXPECT_TRUE(s.receive().is_null()) << "no subscription is sent";
    });
    EXPECT_EQ(failureOf([&] { HerdrSocket::events(newer.path(), 7, panes, [] {}, {}); }),
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
