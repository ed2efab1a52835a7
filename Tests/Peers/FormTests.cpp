// A form that a server of tools puts to the person stands in Claude Code's own terminal only: its light says
// so.
#include <gtest/gtest.h>

#include "PeerWorld.h"
#include "Runtime/Files.h"
#include "Serving.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

TEST(RealClaudeForms, AnOpenFormNeedsThePerson) {
  PeerWorld world;
  const fs::path folder = world.project("forms");
  const fs::path settings = world.home() / ".claude/settings.json";
  files::makeFolders(settings.parent_path());
  files::replace(settings, R"({"permissions": {"allow": ["mcp__kit"]}})", 0600);
  Serving serve(world.ostrelctl(), world.variables(), world.home());
  ASSERT_TRUE(serve.until("agents", [](const Json& event) { return event["scanned"] == true; }).is_object());
  Terminal terminal(world, folder, world.claude());
  const auto shows = [&](const std::string& state, const std::string& light) {
    return serve
        .until("agents",
               [&](const Json& event) {
                 return std::ranges::any_of(event["agents"], [&](const Json& agent) {
                   return agent["context"] == folder.string() && agent["state"] == state &&
                          agent["light"] == light;
                 });
               })
        .is_object();
  };
  ASSERT_TRUE(shows("idle", "done")) << terminal.screen();
  for (int round = 0; round < 2; ++round) {
    terminal.submit("Please [use mcp__kit__ask {}]");
    ASSERT_TRUE(eventually([&] { return terminal.screen().contains("Where to?"); })) << terminal.screen();
    // Claude Code tells of a form that nobody has touched for six seconds.
    EXPECT_TRUE(shows("blocked", "needsYou")) << terminal.screen();
    terminal.key("Escape");
    EXPECT_TRUE(shows("idle", "done")) << terminal.screen();
  }
  const auto left = json::parse(files::read(settings).value());
  EXPECT_EQ((*left)["permissions"]["allow"][0], "mcp__kit");
}

}  // namespace
}  // namespace ostrel
