#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "Herdr/HerdrIntegrations.h"
#include "Herdr/HerdrProtocol.h"
#include "Herdr/HerdrSocket.h"
#include "HerdrStandIn.h"
#include "Runtime/Failure.h"

namespace ostrel {
namespace {

using namespace std::literals;

// Waits until it holds; a loaded machine may take long.
bool eventually(const std::function<bool()>& condition) {
  for (int i = 0; i < 3000; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(10ms);
  }
  return false;
}

TEST(HerdrStandIn, SessionsAndTheirAgentsAreListed) {
  HerdrStandIn herdr;
  herdr.start("two");
  herdr.start("one");
  herdr.start("gone");
  herdr.stop("gone");
  const std::string list = herdr.run({"session", "list", "--json"}).output;
  EXPECT_EQ(HerdrProtocol::sessions(list), (std::vector<std::string>{"one", "two"}));
  EXPECT_NE(list.find(herdr.socket("one")), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(herdr.socket("gone")));

  auto pane = herdr.open("one", {"cat"}, "/usr");
  EXPECT_TRUE(HerdrProtocol::agents(herdr.run("one", {"agent", "list"}).output, "one", {}).empty());
  herdr.report("one", pane, {.agent = "claude", .status = "working", .title = "Fix it", .reference = "abc"});
  const auto agents = HerdrProtocol::agents(herdr.run("one", {"agent", "list"}).output, "one", {});
  ASSERT_EQ(agents.size(), 1u);
  EXPECT_EQ(agents[0].paneID, pane.id);
  EXPECT_EQ(agents[0].terminalID, pane.terminal);
  EXPECT_EQ(agents[0].provider + agents[0].state + agents[0].title, "claudeworkingFix it");
  EXPECT_EQ(agents[0].context, "/usr");
  EXPECT_EQ(agents[0].transcriptReference, "abc");
  EXPECT_EQ(agents[0].transcriptKind, "id");
  EXPECT_TRUE(HerdrProtocol::agents(herdr.run("two", {"agent", "list"}).output, "two", {}).empty());
}

TEST(HerdrStandIn, EventsArriveForWhatWasSubscribed) {
  HerdrStandIn herdr;
  herdr.start("one");
  const auto watched = herdr.open("one", {"cat"});
  const auto other = herdr.open("one", {"cat"});
  for (const auto& pane : {watched, other}) herdr.report("one", pane, {.agent = "codex", .status = "idle"});
  std::atomic<int> received = 0;
  const std::vector<std::string> panes = {watched.id};
  std::jthread listener([&](const std::stop_token& stop) {
    try {
      HerdrSocket::events(herdr.socket("one"), 12, panes, [&] { ++received; }, stop);
    } catch (const Cancelled&) {
    }
  });
  ASSERT_TRUE(eventually([&] { return received == 1; }));
  herdr.report("one", other, {.status = "working"});  // of no interest
  herdr.report("one", watched, {.status = "working"});
  ASSERT_TRUE(eventually([&] { return received >= 2; }));
  herdr.open("one", {"true"});  // created, exited
  EXPECT_TRUE(eventually([&] { return received >= 4; }));
  EXPECT_EQ(received, 4);
}

}  // namespace
}  // namespace ostrel
