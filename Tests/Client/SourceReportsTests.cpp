#include <sys/socket.h>

#include <gtest/gtest.h>

#include "Claude/PermissionSocket.h"
#include "Client/HerdrClient.h"
#include "Runtime/Failure.h"
#include "Runtime/UniqueFd.h"
#include "Support/MemoryPreferences.h"
#include "Support/NoPorts.h"
#include "Support/TemporaryFolder.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

bool listens(const std::string& path) {
  const UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_un address = permissionSocket::address(path.c_str());
  return ::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

TEST(SourceReports, EachSourceThatFailsIsNamedUntilItWorks) {
  const TemporaryFolder folder;
  const std::string socket = folder.path() / "p.sock";
  VirtualLoop loop;
  BackgroundPool pool;
  NoExits exits;
  NoFiles files;
  NoServers servers;
  NoHerdr herdr;
  MemoryPreferences preferences;
  std::atomic<bool> broken = true;
  const auto list = [&](std::stop_token) -> std::vector<HerdrAgent> {
    if (broken) throw Failure("it broke");
    return {};
  };
  // The one of another program, which has the prompts.
  auto other = std::make_unique<ClaudePermissionServer>(loop, socket);
  other->start();
  HerdrClient client({loop, pool, exits, files, preferences, servers, herdr, pool},
                     {.scanExternal = list,
                      .claudeSessions = folder.path(),
                      .codexServer = folder.path() / "codex.sock",
                      .followCodex =
                          [&](const auto&, std::stop_token) {
                            if (broken) throw Failure("it broke");
                          },
                      .permissionSocket = socket});
  EXPECT_TRUE(client.report()->problems.empty());
  int told = 0;
  const Subscription changes = client.report().observe([&] { ++told; });
  client.startDiscovery();
  client.herdr().connect();
  loop.waitUntil([&] { return client.report()->complete; });
  const auto problems = client.report()->problems;
  ASSERT_EQ(problems.size(), 4u);
  EXPECT_EQ(problems[0], "Local discovery unavailable: it broke");
  EXPECT_TRUE(problems[1].starts_with("Herdr was not found."));
  EXPECT_EQ(problems[2], "Codex live connection unavailable: it broke");
  EXPECT_TRUE(problems[3].starts_with("Claude Code's prompts go to another program"));

  broken = false;
  other.reset();
  const int before = std::exchange(told, 0);
  EXPECT_GT(before, 0);
  loop.waitUntil([&] {
    loop.runFor(std::chrono::seconds(1));
    return client.report()->problems.size() == 1;
  });
  EXPECT_GT(told, 0);
  EXPECT_TRUE(listens(socket));
}

TEST(SourceReports, WhatHindersThePermissionHookIsSaid) {
  const TemporaryFolder home;
  home.write(".claude/settings.json", "{ not JSON");
  VirtualLoop loop;
  BackgroundPool pool;
  NoExits exits;
  NoFiles files;
  NoServers servers;
  NoHerdr herdr;
  MemoryPreferences preferences;
  ClaudePermissions permissions{{{}, home.path(), {}}, "/o", preferences};
  ClaudePermissionServer other(loop, home.path() / "p.sock");
  other.start();
  HookFollower hook({loop, pool, files}, permissions, preferences, home.path() / "preferences");
  HerdrClient client({loop, pool, exits, files, preferences, servers, herdr, pool},
                     {.scanExternal = [](std::stop_token) { return std::vector<HerdrAgent>{}; },
                      .claudeSessions = home.path(),
                      .permissionSocket = home.path() / "p.sock",
                      .hook = &hook});
  client.startDiscovery();
  ASSERT_EQ(client.report()->problems.size(), 2U);
  EXPECT_TRUE(client.report()->problems[1].starts_with("The permission hook could not be put in."));
  preferences.set(ClaudePermissions::kOffKey, true);
  permissions.seen(permissions.look());
  EXPECT_TRUE(client.report()->problems.empty())
      << "nobody wants the prompts, so it is no matter who has them";
  other.stop();
  loop.runFor(std::chrono::seconds(5));
  EXPECT_FALSE(listens(home.path() / "p.sock"));
  preferences.set(ClaudePermissions::kOffKey, false);
  permissions.seen(permissions.look());
  EXPECT_TRUE(listens(home.path() / "p.sock")) << "a hook that somebody put in elsewhere is answered";
}

}  // namespace
}  // namespace ostrel
