#include <csignal>
#include <thread>

#include <gtest/gtest.h>

#include "Platform/Linux/SpawnedServers.h"
#include "Runtime/Files.h"
#include "Support/Failures.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

TEST(SpawnedServers, RunInASessionOfTheirOwnUntilTheyEnd) {
  const TemporaryFolder folder;
  const auto told = folder.path() / "told";
  SpawnedServers servers;
  const auto server = servers.launch(
      "/bin/sh",
      {"-c",
       "ps -o sid= -p $$ >\"$OUT\".new; echo $$ >>\"$OUT\".new; mv \"$OUT\".new \"$OUT\"; exec sleep 600"},
      {{"OUT", told.string()}, {"PATH", "/usr/bin:/bin"}});
  for (int i = 0; i < 2000 && !files::status(told); ++i) std::this_thread::sleep_for(10ms);
  int session = 0, pid = -1;
  ASSERT_EQ(std::sscanf(files::read(told).value_or("").c_str(), "%d %d", &session, &pid), 2);
  EXPECT_EQ(session, pid);
  EXPECT_TRUE(server->running());
  ::kill(pid, SIGKILL);
  for (int i = 0; i < 2000 && server->running(); ++i) std::this_thread::sleep_for(10ms);
  EXPECT_FALSE(server->running());
  EXPECT_EQ(failureOf([&] { servers.launch("/nowhere", {}, {}); }),
            "Could not start /nowhere: No such file or directory");
}

}  // namespace
}  // namespace ostrel
