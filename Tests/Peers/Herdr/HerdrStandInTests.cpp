#include <csignal>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include "Herdr/HerdrIntegrations.h"
#include "Herdr/HerdrProtocol.h"
#include "HerdrStandIn.h"
#include "LocalSocket.h"
#include "Runtime/Files.h"
#include "Runtime/Text.h"
#include "Support/Eventually.h"
#include "Support/ForkedProcess.h"

namespace ostrel {
namespace {

using namespace std::literals;

std::vector<HerdrAgent> agents(const HerdrStandIn& herdr) {
  return HerdrProtocol::agents(herdr.run("one", {"agent", "list"}).output, "one", {});
}

class HerdrStandInTest : public testing::Test {
 protected:
  HerdrStandInTest() { herdr.start("one"); }
  Json ask(std::string_view method, const Json& params) const {
    return json::parse(standin::request(herdr.socket("one"), method, params)).value_or(Json());
  }
  std::string screen(const HerdrStandIn::Pane& pane) const {
    return ask("pane.read", {{"pane_id", pane.id}})["result"]["read"].value("text", "");
  }
  HerdrStandIn herdr;
};

TEST_F(HerdrStandInTest, TypingReachesTheProgramAndItsScreenIsRead) {
  const auto pane = herdr.open("one", {"sh", "-c", "stty -echo; seq 40; exec cat"});
  ASSERT_TRUE(eventually([&] { return screen(pane).ends_with("40"); }));
  EXPECT_TRUE(screen(pane).starts_with("12\n13\n")) << "the screen has 30 rows, the last one for the cursor";
  herdr.run("one", {"pane", "send-text", pane.id, "--typed\n"});
  ASSERT_TRUE(eventually([&] { return screen(pane).ends_with("\n--typed"); }));
  EXPECT_EQ(herdr.run("one", {"pane", "read", pane.id, "--source", "visible", "--format", "text"}).output,
            screen(pane));
  EXPECT_TRUE(herdr.run("one", {"pane", "read", pane.id, "--source", "recent"}).output.starts_with("1\n2\n"));
}

// The facts of the wire that clients have to live with.
TEST_F(HerdrStandInTest, AConnectionTakesOneRequestAndSubscriptionsReplay) {
  const auto pane = herdr.open("one", {"cat"});
  herdr.report("one", pane, {.agent = "claude", .status = "working"});
  const UniqueFd two = standin::connectTo(herdr.socket("one"));
  const auto say = [](const UniqueFd& fd, const std::string& line) {
    return ::send(fd.get(), line.data(), line.size(), MSG_NOSIGNAL);
  };
  say(two, "{\"id\":1,\"method\":\"ping\",\"params\":{}}\n{\"id\":2,\"method\":\"ping\",\"params\":{}}\n");
  std::string all(4096, '\0');
  all.resize(static_cast<std::size_t>(::recv(two.get(), all.data(), all.size(), MSG_WAITALL)));
  EXPECT_EQ(std::ranges::count(all, '\n'), 1) << "the second one is not answered: " << all;

  const UniqueFd events = standin::connectTo(herdr.socket("one"));
  say(events, json::dump({{"id", 1},
                          {"method", "events.subscribe"},
                          {"params",
                           {{"subscriptions",
                             {{{"type", "pane.created"}},
                              {{"type", "pane.agent_status_changed"}, {"pane_id", pane.id}}}}}}}) +
                  "\n");
  std::string heard;
  const auto hear = [&](std::string_view wanted) {
    return eventually([&] {
      char bytes[4096];
      const auto count = ::recv(events.get(), bytes, sizeof bytes, MSG_DONTWAIT);
      if (count > 0) heard.append(bytes, static_cast<std::size_t>(count));
      return heard.find(wanted) != std::string::npos;
    });
  };
  EXPECT_TRUE(hear("\"pane_created\"")) << "what was before the subscription";
  EXPECT_EQ(heard.find("agent_status_changed"), std::string::npos) << heard;
  herdr.report("one", pane, {.status = "blocked"});
  EXPECT_TRUE(hear("\"agent_status\":\"blocked\""));

  const Json refused =
      ask("events.subscribe",
          {{"subscriptions",
            {{{"type", "pane.created"}}, {{"type", "pane.agent_status_changed"}, {"pane_id", "w1:p77"}}}}});
  EXPECT_EQ(json::string(refused["error"], "message"), "pane w1:p77 not found");
}

TEST_F(HerdrStandInTest, PanesOutliveALiveHandoff) {
  const auto pane = herdr.open("one", {"sh", "-c", "stty -echo; echo ready; exec cat"});
  herdr.report("one", pane, {.agent = "claude", .status = "blocked"});
  ASSERT_TRUE(eventually([&] { return screen(pane) == "ready"; }));
  const pid_t before = herdr.server("one");
  herdr.handOff("one");
  EXPECT_NE(herdr.server("one"), before);
  ASSERT_EQ(agents(herdr).size(), 1u);
  EXPECT_EQ(agents(herdr)[0].state, AgentState::blocked);
  EXPECT_EQ(agents(herdr)[0].terminalID, pane.terminal);
  herdr.run("one", {"pane", "send-text", pane.id, "still there\n"});
  EXPECT_TRUE(eventually([&] { return screen(pane) == "ready\nstill there"; })) << screen(pane);
}

TEST_F(HerdrStandInTest, IntegrationsKeepTheirStateAndNeedTheirProgram) {
  herdr.setIntegrations({{"codex", "outdated (0.9)"}});
  const auto refused = herdr.run({"integration", "install", "claude"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_TRUE(refused.output.starts_with("claude config directory not found")) << refused.output;
  std::filesystem::create_directory(herdr.home() / ".claude");
  EXPECT_EQ(herdr.run({"integration", "install", "claude"}).status, 0);
  EXPECT_EQ(herdr.run({"integration", "install", "nothing"}).status, 2);
  const auto states = HerdrIntegration::parse(herdr.run({"integration", "status"}).output);
  ASSERT_EQ(states.size(), 16u);
  EXPECT_EQ(states[0], (HerdrIntegration{"codex", "outdated (0.9)"}));
  EXPECT_TRUE(states[1].isCurrent());
}

TEST(HerdrStandIn, ItEndsWithItsOwner) {
  HerdrStandIn herdr;
  const ForkedProcess owner;
  auto variables = herdr.environment();
  variables["STANDIN_HERDR_OWNER"] = std::to_string(owner.pid());
  runCommand({herdr.executable(), "--session", "one", "session", "start"}, variables);
  const auto file = herdr.home() / "pid";
  herdr.open("one", {"sh", "-c", "echo $$ > " + file.string() + "; trap '' HUP TERM; cat"});
  std::optional<long long> pid;
  ASSERT_TRUE(eventually([&] {
    const auto written = files::read(file);
    if (written) pid = text::parseInteger(text::trim(*written));
    return pid.has_value();
  }));
  owner.kill();
  EXPECT_TRUE(eventually([&] { return !std::filesystem::exists(herdr.socket("one")); }));
  EXPECT_TRUE(eventually([&] { return ::kill(static_cast<pid_t>(*pid), 0) != 0; }));
}

}  // namespace
}  // namespace ostrel
