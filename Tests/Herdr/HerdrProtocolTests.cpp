#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Herdr/HerdrIntegrations.h"
#include "Herdr/HerdrProtocol.h"
#include "Support/Failures.h"

namespace ostrel {
namespace {

using namespace std::literals;

constexpr auto kId = "0f8fad5b-d9cb-469f-a165-70867728950e";

TEST(HerdrProtocol, ResultTakesBothShapesAndReportsErrors) {
  EXPECT_EQ(HerdrProtocol::result(R"({"result":{"a":1}})")["a"], 1);
  EXPECT_EQ(HerdrProtocol::result(R"({"result":3,"a":1})")["a"], 1);
  EXPECT_EQ(HerdrProtocol::result(R"({"error":"x","result":{"a":1}})")["a"], 1);
  for (const auto& [data, message] : std::vector<std::pair<std::string, std::string>>{
           {R"({"error":{"message":"No such pane."}})", "No such pane."},
           {R"({"error":{"message":3}})", "Herdr request failed."},
           {R"({"error":{"message":" \n"}})", "Herdr request failed."},
           {R"({"error":{"message":"first\u001b \nsecond"}})", "first\\x1b"},
           {"[1]", "Herdr returned an unsupported response."},
           {"", "Herdr returned an unsupported response."}}) {
    EXPECT_EQ(failureOf([&] { HerdrProtocol::result(data); }), message) << data;
  }
}

TEST(HerdrProtocol, SessionsAreTheRunningOnesOrAFailure) {
  EXPECT_EQ(HerdrProtocol::sessions(
                R"({"result":{"sessions":[{"name":"b","running":true},{"name":"a","running":true},
    {"name":"c","running":false},{"name":"b","running":true}]}})"),
            (std::vector{"a"s, "b"s}));
  for (const auto bad : {R"({"name":"","running":false})", R"({"name":"-x","running":true})",
                         R"({"name":"x"})", R"({"name":"x","running":1})"}) {
    EXPECT_EQ(failureOf([&] { HerdrProtocol::sessions(R"({"sessions":[)"s + bad + "]}"); }),
              "Invalid Herdr session record.");
  }
  for (const auto bad : {R"({"sessions":3})", "{}", R"({"sessions":["x"]})"}) {
    EXPECT_EQ(failureOf([&] { HerdrProtocol::sessions(bad); }), "Unsupported Herdr session-list format.");
  }
}

TEST(HerdrProtocol, AgentsAreLookedUpInOrderOfPlaces) {
  const auto list = HerdrProtocol::agents(R"({"result":{"agents":[
    {"name":"row name","agent":"codex","status":"done","agent_session":{"value":"v","kind":"id"},
     "pane":{"pane_id":"p1","presentation":{"title":"Shown"},"title":"Plain","agent_status":"working",
             "foreground_cwd":7,"cwd":"/x","terminal_id":"t1"}},
    {"pane_id":"p2","pane":"no object","title":"Own","agent_session":{"value":3}},
    {"pane_id":"p3"}]}})",
                                          "main", {});
  ASSERT_EQ(list.size(), 3u);
  const HerdrAgent& first = list[0];
  EXPECT_EQ(fmt::format("{} {} {} {} {} {} {} {} {}", first.session, first.paneID, first.title,
                        first.provider, stateName(first.state), first.context, first.terminalID.value(),
                        first.transcriptReference.value(), first.transcriptKind.value()),
            "main p1 Shown codex working /x t1 v id");
  EXPECT_EQ(list[1].title, "Own");
  EXPECT_FALSE(list[1].transcriptReference);
  EXPECT_EQ(list[2].title, "p3");
  EXPECT_TRUE(HerdrProtocol::agents(R"({"result":3,"agents":[]})", "s", {}).empty());
  for (const auto bad : {R"({})", R"({"pane":{}})", R"({"pane":{},"pane_id":"p"})", R"({"pane_id":""})",
                         R"({"pane_id":"-p"})", R"({"pane_id":"p"},{"pane":{"pane_id":"p"}})"}) {
    EXPECT_EQ(failureOf([&] { HerdrProtocol::agents(R"({"agents":[)"s + bad + "]}", "s", {}); }),
              "Herdr returned a missing or duplicate pane identifier.")
        << bad;
  }
  EXPECT_EQ(failureOf([] { HerdrProtocol::agents("{}", "s", {}); }),
            "This Herdr version has an unsupported agent-list format. Check its CLI/API version.");
}

TEST(HerdrProtocol, OutputTakesTheFirstTextOrTheLines) {
  EXPECT_EQ(HerdrProtocol::output(R"({"result":{"read":{"text":"","lines":["a"]}}})"), "");
  EXPECT_EQ(HerdrProtocol::output(R"({"text":3,"output":"o"})"), "o");
  EXPECT_EQ(HerdrProtocol::output(R"({"lines":["a","a",""]})"), "a\na\n");
  for (const auto bad : {"{}", R"({"lines":[1]})", R"({"read":{},"text":"outer"})"}) {
    EXPECT_EQ(failureOf([&] { HerdrProtocol::output(bad); }),
              "This Herdr version has an unsupported output format.");
  }
}

TEST(HerdrProtocol, PromptsGoOnlyToTheAgentThatWasSeen) {
  HerdrAgent seen;
  seen.session = "s";
  seen.paneID = "p";
  seen.terminalID = "t";
  seen.provider = "claude";
  seen.state = AgentState::working;
  HerdrAgent current = seen;
  current.state = AgentState::idle;
  EXPECT_TRUE(HerdrProtocol::canPrompt(current, seen));
  EXPECT_FALSE(HerdrProtocol::canPrompt({}, seen));
  const std::pair<std::string HerdrAgent::*, const char*> changes[] = {{&HerdrAgent::provider, "codex"},
                                                                       {&HerdrAgent::paneID, "q"}};
  for (const auto& [member, value] : changes) {
    HerdrAgent other = current;
    other.*member = value;
    EXPECT_FALSE(HerdrProtocol::canPrompt(other, seen)) << value;
  }
  HerdrAgent other = current;
  other.state = AgentState::unknown;
  EXPECT_FALSE(HerdrProtocol::canPrompt(other, seen));
  current.terminalID = "u";
  EXPECT_FALSE(HerdrProtocol::canPrompt(current, seen));
  seen.terminalID.reset();
  current.terminalID.reset();
  EXPECT_FALSE(HerdrProtocol::canPrompt(current, seen));
}

TEST(HerdrProtocol, ConversationsAndResumeArguments) {
  const std::string path = "/x/rollout-1-"s + kId + ".jsonl";
  EXPECT_TRUE(HerdrProtocol::sameConversation(path, kId, "codex"));
  EXPECT_FALSE(HerdrProtocol::sameConversation(path, "other", "claude"));
  EXPECT_FALSE(HerdrProtocol::sameConversation({}, {}, "claude"));
  EXPECT_FALSE(HerdrProtocol::sameConversation(path, kId, "pi"));

  using Words = std::vector<std::string>;
  const auto resume = [](std::string_view provider, std::optional<std::string> id) {
    return HerdrProtocol::resumeArguments(provider, id);
  };
  EXPECT_EQ(resume("claude", {}), Words{});
  EXPECT_EQ(resume("codex", kId), (Words{"--", "resume", kId, "--no-daemon"}));
  EXPECT_EQ(resume("letta", "default:a"), (Words{"--", "--conversation", "default", "--agent", "a"}));
  EXPECT_EQ(resume("letta", "default:"), (Words{"--", "--conversation", "default:"}));
  EXPECT_EQ(resume("pi", std::string(4096, 'x')).back().size(), 4096u);
  const std::pair<const char*, std::string> refused[] = {
      {"claude", "abc"}, {"pi", ""},  {"pi", "-x"}, {"pi", "a\nb"}, {"pi", std::string(4097, 'x')},
      {"amp", "x"},      {"who", "x"}};
  for (const auto& [provider, id] : refused) {
    EXPECT_EQ(
        failureOf([&] { resume(provider, id); }),
        "Enter the exact conversation UUID for Codex/Claude, or the provider’s saved ID or session path.");
  }
}

TEST(HerdrIntegration, StatusLinesAreReadAndRecommended) {
  const auto parsed = HerdrIntegration::parse(
      "Installed integrations:\ncursor (experimental): current (1.2)\n\nclaude: not installed "
      "(/home/x/.claude)\n"
      "codex: outdated (1.0) (/home/x/.codex)\r\npi: something else\nnote without a target\n");
  EXPECT_EQ(parsed,
            (std::vector<HerdrIntegration>{
                {"cursor", "current (1.2)"}, {"claude", "not installed"}, {"codex", "outdated (1.0)"}}));
  EXPECT_EQ(HerdrIntegration::recommended(parsed, {}), std::vector{"codex"s});
  HerdrAgent agent;
  agent.provider = "Claude";
  EXPECT_EQ(HerdrIntegration::recommended(parsed, std::vector{agent}), (std::vector{"claude"s, "codex"s}));

  EXPECT_EQ(failureOf([] { HerdrIntegration::parse("claude: \x80"); }),
            "Integration status is not valid text.");
  for (const auto bad : {"", "codex: unknown", "pi: current (1)\npi: current (1)"}) {
    EXPECT_EQ(failureOf([&] { HerdrIntegration::parse(bad); }),
              "This Herdr version returned an unrecognized integration status. See the integration guide.");
  }
}

}  // namespace
}  // namespace ostrel
