#include <csignal>

#include <gtest/gtest.h>

#include "Platform/Linux/SpawnedServers.h"
#include "Runtime/Files.h"
#include "Support/Eventually.h"
#include "Support/Failures.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

TEST(SpawnedServers, RunInASessionOfTheirOwnUntilTheyEnd) {
  const TemporaryFolder folder;
  const auto told = folder.path() / "told";
  SpawnedServers servers;
  const auto server = servers.launch(
      "/bin/sh",
      {"-c",
       "ps -o sid= -p $$ >\"$OUT\".new; echo $$ >>\"$OUT\".new; mv \"$OUT\".new \"$OUT\"; exec sleep 600"},
      {{"OUT", told.string()}, {"PATH", "/usr/bin:/bin"}});
  EXPECT_TRUE(eventually([&] { return files::status(told).has_value(); }));
  int session = 0, pid = -1;
  ASSERT_EQ(std::sscanf(files::read(told).value_or("").c_str(), "%d %d", &session, &pid), 2);
  EXPECT_EQ(session, pid);
  EXPECT_TRUE(server->running());
  ::kill(pid, SIGKILL);
  EXPECT_TRUE(eventually([&] { return !server->running(); }));
  EXPECT_EQ(failureOf([&] { servers.launch("/nowhere", {}, {}); }),
            "Could not start /nowhere: No such file or directory");
}

}  // namespace
}  // namespace ostrel
