#include <gtest/gtest.h>

#include "App/ConnectionsPage.h"
#include "App/ProviderConnections.h"
#include "Runtime/Files.h"
#include "Support/ChildProcess.h"
#include "Support/FakeAgents.h"
#include "Support/TemporaryFolder.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::literals;
namespace fs = std::filesystem;
using enum ConnectionState;

TEST(ProviderConnections, ReadTheAnswersOfTheTools) {
  const auto codex = ProviderConnections::ofCodex;
  EXPECT_EQ(codex(0, "Logged in using ChatGPT\n"), subscription);
  EXPECT_EQ(codex(0, "API key configured - sk-x\n"), otherAccount);
  EXPECT_EQ(codex(1, "Not logged in to ChatGPT\n"), disconnected);
  const auto claude = [](std::string_view output) { return ProviderConnections::ofClaude(0, output); };
  EXPECT_EQ(claude("(node) a warning\n{\"loggedIn\":true,\"authMethod\":\"Claude.ai\"}\n"), subscription);
  EXPECT_EQ(claude(R"({"loggedIn":true})"), otherAccount);
  EXPECT_EQ(claude(R"({"loggedIn":"true","authMethod":"oauth"})"), disconnected);
  EXPECT_EQ(claude("} logged in {"), disconnected);
  EXPECT_EQ(ProviderConnections::ofClaude(1, R"({"loggedIn":true,"authMethod":"Claude.ai"})"), disconnected);
}

TEST(ConnectionsPage, SaysWhatCanBeDone) {
  // Each row as its words and its buttons.
  const auto page = [](const ConnectionFacts& facts) {
    std::vector<std::string> lines;
    for (const ConnectionRow& row : connections::rows(facts)) {
      std::string& line = lines.emplace_back(row.state);
      for (const auto& button : row.buttons) line += "|" + button.title;
    }
    return lines;
  };
  using Lines = std::vector<std::string>;
  ConnectionFacts facts{.providers = {{AgentProvider::claude, disconnected}},
                        .herdr = {.status = "Not connected"}};
  EXPECT_EQ(page(facts), (Lines{"Checking…", "Not signed in|Connect", "Not found"}));
  facts.program = "/bin/herdr";
  EXPECT_EQ(page(facts)[2], "Not connected|Connect");
  EXPECT_EQ(page(facts)[3], "Not checked|Check");
  facts.herdr.active = true;
  EXPECT_EQ(page(facts)[2], "Not connected|Disconnect|Start a session");
  facts.herdr.connected = true;
  facts.herdr.integrations = {{"codex", "current (1.2)"}, {"claude", "outdated (1.0)"}};
  facts.herdr.recommended = {"claude"};
  EXPECT_EQ(page(facts)[2], "Not connected|Disconnect");
  EXPECT_EQ(page(facts)[3], "Worth installing: claude|Check|Install");
}

class ProviderConnectionsTest : public testing::Test {
 protected:
  // Opens nothing: the words of the failure say what was asked for.
  struct Desktop final : UrlOpener, TerminalOpener {
    void open(const std::string&) override {}
    void open(const fs::path& script) override { throw Failure(script.filename()); }
  };
  ConnectionState codex() const { return connections_.connections->at(AgentProvider::codex); }
  bool reaches(ConnectionState state, std::size_t runs) {
    return loop_.waitUntil([&] {
      return connections_.idle() && codex() == state && files::read(log_).value_or("").size() == runs;
    });
  }
  TemporaryFolder folder_;
  fs::path log_ = folder_.path() / "log";
  VirtualLoop loop_;
  CommandLineTools tools_{Environment{{{"PATH", folder_.path() / "bin"}}, folder_.path(), {}}};
  Desktop desktop_;
  FakeAgents agents_;
  OstrelModel model_{agents_};
  InterfaceState shown_;
  BackgroundPool pool_;
  TerminalLauncher terminal_{pool_, tools_, desktop_, folder_.path() / "data"};
  ProviderConnections connections_{{loop_, pool_, tools_, terminal_, desktop_}, model_, shown_};
};

TEST_F(ProviderConnectionsTest, FollowTheInstalledTool) {
  connections_.connect(AgentProvider::codex);
  EXPECT_TRUE(
      loop_.waitUntil([&] { return *model_.statusMessage() == "Install Codex, then refresh connections."; }));
  connections_.refreshConnections();
  EXPECT_TRUE(loop_.waitUntil([&] { return connections_.idle(); }));
  EXPECT_EQ(codex(), missing);
  std::vector<ConnectionState> states;
  const Subscription changes = connections_.connections.observe([&] { states.push_back(codex()); });
  // Each run leaves a byte.
  const std::string script = "#!/bin/sh\nprintf x >> '" + log_.string() +
                             "'\n[ \"$*\" = 'login status' ] && echo 'API key configured' >&2";
  fs::permissions(folder_.write("bin/codex", script), fs::perms::owner_all);
  connections_.refreshConnections();
  connections_.refreshConnections();
  EXPECT_TRUE(reaches(otherAccount, 1)) << "checks of one provider never overlap";
  EXPECT_EQ(states, (std::vector{checking, otherAccount}));

  // A sign-in is watched while somebody looks, for two minutes in all.
  connections_.connect(AgentProvider::codex);
  const auto message = "Could not open Terminal: launch-Connect Codex.command"s;
  EXPECT_TRUE(loop_.waitUntil([&] { return *model_.statusMessage() == message; }));
  EXPECT_FALSE(loop_.nextTimer()) << "nobody looks";
  shown_.page.set({PanelTab::connections});
  shown_.isPanelVisible.set(true);
  for (std::size_t i = 1; i <= ProviderConnections::kSignInChecks; ++i) {
    loop_.runFor(3s);
    ASSERT_EQ(codex(), otherAccount) << "no flicker";
    ASSERT_TRUE(reaches(otherAccount, 1 + i));
  }
  EXPECT_FALSE(loop_.nextTimer());
}

TEST_F(ProviderConnectionsTest, ClaudesAnswerIsWhatItPrintsAndHowItEnds) {
  const auto claude = [&](const std::string& end) {
    const std::string script =
        "#!/bin/sh\necho '{\"loggedIn\":true,\"authMethod\":\"claude.ai\"}'\n"
        "echo 'could not read {settings}' >&2\n" +
        end;
    fs::permissions(folder_.write("bin/claude", script), fs::perms::owner_all);
    connections_.refreshConnections();
    EXPECT_TRUE(loop_.waitUntil([&] { return connections_.idle(); }));
    return connections_.connections->at(AgentProvider::claude);
  };
  EXPECT_EQ(claude("exit 0"), subscription);
  EXPECT_EQ(claude("exit 1"), disconnected);
}

TEST_F(ProviderConnectionsTest, HerdrIsLookedForAtMostOnceInSomeSeconds) {
  const auto place = [&](const std::string& chosen = {}) {
    for (int i = 0; i < 20; ++i)
      connections_.lookForHerdr(chosen);  // as often as the page is drawn in a second
    EXPECT_TRUE(loop_.waitUntil([&] { return connections_.idle(); }));
    return connections_.herdr->executable.value_or("none").filename();
  };
  connections_.lookForHerdr("");
  EXPECT_FALSE(connections_.herdr->known) << "not on the spot: the disk may take its time";
  EXPECT_EQ(place(), "none");
  EXPECT_TRUE(connections_.herdr->known);
  const fs::path tool = folder_.write("bin/herdr", "#!/bin/sh\n");
  fs::permissions(tool, fs::perms::owner_all);
  loop_.advance(4s);
  EXPECT_EQ(place(), "none");
  loop_.advance(1s);
  EXPECT_EQ(place(), "herdr");
  EXPECT_EQ(place("/not/there"), "none") << "another choice is looked at at once";
  EXPECT_EQ(place(tool), "herdr");
}

TEST_F(ProviderConnectionsTest, TheScriptOfATerminalRunsItsCommandAndWaits) {
  const fs::path script = folder_.write("s", TerminalLauncher::script("echo \"$PATH\"", "/it's/bin:/bin"));
  const auto run = runCommand({"/bin/sh", script.string()}, {});
  EXPECT_EQ(run.output + run.errors, "/it's/bin:/bin\n\nPress Return to close this tab…\n");
}

}  // namespace
}  // namespace ostrel
