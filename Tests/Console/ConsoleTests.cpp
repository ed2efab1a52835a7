#include <gtest/gtest.h>

#include "Console/Listing.h"
#include "Console/Options.h"
#include "Runtime/Json.h"
#include "Runtime/Text.h"

namespace ostrel::console {
namespace {

using namespace std::literals;
using Command = Options::Command;

TEST(Options, AreReadOrRefusedInOneLine) {
  const auto parse = [](std::vector<std::string> words) { return parseOptions(words); };
  EXPECT_EQ(parse({"agents", "--json", "--wait", "0.5"}), (Options{Command::agents, true, 500ms}));
  EXPECT_EQ(parse({"agents", "--wait=2"}), (Options{Command::agents, false, 2s}));
  EXPECT_EQ(parse({"watch", "--json"}), (Options{Command::watch, true, 10s}));
  EXPECT_EQ(parse({"watch", "--help"})->command, Command::help);
  EXPECT_EQ(parse({"hook", "off"})->hook, Options::Hook::off);
  EXPECT_EQ(parse({"hook", "--help"})->command, Command::help);
  const std::pair<std::vector<std::string>, std::string> refused[] = {
      {{"hook"}, "hook needs one of \"on\", \"off\" and \"status\""},
      {{"hook", "on", "off"}, "hook needs one of \"on\", \"off\" and \"status\""},
      {{}, "a command is missing"},
      {{"agent"}, "unknown command \"agent\""},
      {{"watch", "--wait", "1"}, "unknown word \"--wait\""},
      {{"agents", "--wait"}, "--wait needs a number of seconds"},
      {{"agents", "--wait", "-1"}, "--wait needs a number of seconds, not \"-1\""},
      {{"agents", "--wait", "nan"}, "--wait needs a number of seconds, not \"nan\""},
      {{"agents", "--wait", "1s"}, "--wait needs a number of seconds, not \"1s\""},
  };
  for (const auto& [words, message] : refused) EXPECT_EQ(parse(words).error(), message);
}

ShownAgent shownAgent() {
  ShownAgent shown;
  shown.agent.session = "external";
  shown.agent.paneID = "42:Sun Nov 22 21:51:10 2026";
  shown.agent.provider = "claude";
  shown.agent.state = AgentState::idle;
  shown.agent.context = "/home/me/a\tb\n";
  shown.agent.since = WallTime(1'700'000'000'250ms);
  shown.agent.externalProcess =
      ExternalProcess{42, 1, "Sun Nov 22 21:51:10 2026", "/bin/claude", "pts/3", "/usr/bin/kitty", 1000};
  shown.agent.transcriptKind = "id";
  shown.agent.transcriptReference = "0f8fad5b-d9cb-469f-a165-70867728950e";
  shown.title = "Fix é";
  shown.light = AgentLight::done;
  return shown;
}

TEST(Listing, OneLineIsAlwaysOneAgent) {
  Listing list{{shownAgent(), shownAgent()}, {}, {}, {}};
  EXPECT_EQ(asText({{shownAgent()}, {}, {}, {}}, false),
            "8:external42:Sun Nov 22 21:51:10 2026\tclaude\tidle\tdone\tFix é\t/home/me/a\\tb\\n\n");
  list.agents[1].title = "gnp\u202E.sh";
  EXPECT_TRUE(asText(list, false).contains("gnp⟨U+202E⟩.sh")) << "nothing in a name turns the line around";
  list.agents[1].title = "x";
  const std::string table = asText(list, true);
  const auto lines = text::split(table, '\n');
  ASSERT_EQ(lines.size(), 4u);
  // "é" takes two bytes and one column.
  EXPECT_EQ(text::characterCount(lines[1].substr(0, lines[1].find("/home"))),
            text::characterCount(lines[2].substr(0, lines[2].find("/home"))));
  EXPECT_EQ(lines[0].find("CONTEXT"), lines[2].find("/home"));
  EXPECT_EQ(asText({}, true), "No agents running\n");
  EXPECT_EQ(asText({}, false), "");
}

TEST(Listing, JsonHasEveryFieldOfEveryAgent) {
  Listing list{{shownAgent()}, {}, {}, {}};
  const std::string line = asJson(list);
  EXPECT_EQ(line.find('\n'), line.size() - 1);
  const Json agent = (*json::parse(line))["agents"][0];
  EXPECT_EQ(agent,
            *json::parse(R"({"id":"8:external42:Sun Nov 22 21:51:10 2026","provider":"claude","state":"idle",
    "light":"done","title":"Fix é","context":"/home/me/a\tb\n","project":"a\tb\n","host":"kitty","pid":42,"tty":"pts/3",
    "since":"2023-11-14T22:13:20.250Z","pane":null,"transcript":{"kind":"id","reference":"0f8fad5b-d9cb-469f-a165-70867728950e",
    "path":null}})"));
  list.agents[0].agent.externalProcess->tty = "??";
  list.agents[0].agent.transcriptReference.reset();
  list.agents[0].agent.since.reset();
  list.error = "Local discovery unavailable: no";
  const Json bare = *json::parse(asJson(list));
  EXPECT_EQ(bare["error"], "Local discovery unavailable: no");
  for (const auto key : {"tty", "transcript", "since"}) EXPECT_TRUE(bare["agents"][0][key].is_null()) << key;
  EXPECT_EQ(asJson({}), "{\"agents\":[]}\n");
}

}  // namespace
}  // namespace ostrel::console
