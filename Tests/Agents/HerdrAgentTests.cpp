#include <gtest/gtest.h>

#include "Agents/HerdrAgent.h"
#include "Runtime/Files.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

using namespace std::literals;
using Kind = AgentHost::Kind;

HerdrAgent pane(std::string session, std::string paneID) {
  HerdrAgent agent;
  agent.session = std::move(session);
  agent.paneID = std::move(paneID);
  return agent;
}

TEST(HerdrAgent, IdentityIsAStoredFormat) {
  EXPECT_EQ(pane("default", "p7").id(), "7:defaultp7");
  EXPECT_EQ(pane("é", "p").id(), "2:ép");
  EXPECT_NE(pane("a", "bc").id(), pane("ab", "c").id());
  HerdrAgent remote = pane("s", "p");
  remote.machine = HerdrMachine{"m1", "Build box", "me@host", "s", true};
  EXPECT_EQ(remote.id(), "machine2:m1host7:me@host1:sp");
  EXPECT_EQ(remote.commandPrefix(), (std::vector{"--machine"s, "m1"s}));
  EXPECT_EQ(pane("s", "p").commandPrefix(), (std::vector{"--session"s, "s"s}));
}

TEST(HerdrAgent, KnowsItsProviderAndHost) {
  HerdrAgent agent = pane("default", "p");
  for (const char* name : {"Claude Code", "codex-via-CLAUDE"}) {
    agent.provider = name;
    EXPECT_EQ(agent.knownProvider(), AgentProvider::claude) << name;
  }
  EXPECT_EQ(agent.hostLabel(), "Herdr");
  agent.externalProcess = ExternalProcess{};
  EXPECT_EQ(agent.host().kind, Kind::none);
  EXPECT_FALSE(agent.hostLabel());
  agent.herdrOwned = true;
  EXPECT_EQ(agent.host().kind, Kind::herdr);
  agent.externalProcess->hostApp = "/opt/Some Editor/Editor.app";
  EXPECT_EQ(agent.host(), (AgentHost{Kind::app, "/opt/Some Editor/Editor.app", "Editor"}));
  agent.session = "codex-live";
  EXPECT_EQ(agent.hostLabel(), "Codex app");
}

TEST(HerdrAgent, LooksActiveForTenSecondsAfterItsTranscriptGrew) {
  TemporaryFolder folder;
  const auto file = folder.write("t.jsonl", "x");
  const WallTime changed = files::status(file)->modified;
  HerdrAgent agent = pane("external", "1:x");
  agent.transcriptReference = file.string();
  EXPECT_FALSE(agent.recentlyActive(changed));  // no process
  agent.externalProcess = ExternalProcess{};
  EXPECT_TRUE(agent.recentlyActive(changed + 9'999ms));
  EXPECT_FALSE(agent.recentlyActive(changed + 10s));
  agent.transcriptReference = "/nowhere/at all";
  EXPECT_FALSE(agent.recentlyActive(changed));
}

TEST(ExternalProcess, IsRecognisedByItsExactName) {
  const auto provider = [](std::string executable) {
    ExternalProcess process;
    process.executable = std::move(executable);
    return std::string(process.provider().value_or(""));
  };
  EXPECT_EQ(provider("/usr/local/bin/claude"), "claude");
  EXPECT_EQ(provider("codex.exe"), "codex");
  EXPECT_EQ(provider("gemini/"), "gemini");
  for (const auto other : {"Claude", "claude-code", "node", "", "/", "/claude/bin/node", "claude.exe.exe"})
    EXPECT_EQ(provider(other), "") << other;
}

}  // namespace
}  // namespace ostrel
