#include <csignal>
#include <thread>

#include <gtest/gtest.h>

#include "Runtime/Failure.h"
#include "Runtime/Files.h"
#include "Runtime/Subprocess.h"
#include "Runtime/Text.h"
#include "Support/Eventually.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;
using End = Subprocess::End;

Subprocess::Result shell(const std::string& script, Duration limit = 20s, std::size_t output = 1'000'000,
                         std::stop_token stop = {}) {
  return Subprocess::run("/bin/sh", {"-c", script}, {{"PATH", "/usr/bin:/bin"}, {"WORD", "a b"}}, limit,
                         output, std::move(stop));
}

TEST(Subprocess, GivesOutputAndStatus) {
  // A program that ignores SIGPIPE must not hand that down.
  const auto before = ::signal(SIGPIPE, SIG_IGN);
  auto result = shell("cat; echo \"$WORD $HOME\"; echo err >&2; kill -PIPE $$; echo no");
  ::signal(SIGPIPE, before);
  EXPECT_EQ(result.output, "a b \nerr\n");
  EXPECT_EQ(result.end, End::exited);
  EXPECT_EQ(result.status, 128 + SIGPIPE);
  EXPECT_FALSE(result.succeeded());
  EXPECT_EQ(shell("exit 3").status, 3);
  EXPECT_EQ(shell("exec >&- 2>&-; exit 4").status, 4);
  EXPECT_TRUE(shell("head -c 300000 /dev/zero").succeeded());
  EXPECT_THROW(Subprocess::run("/nowhere/tool", {}, {}, 1s, 10), Failure);
}

TEST(Subprocess, AStatusThatNobodyKnowsIsNoSuccess) {
  const auto before = ::signal(SIGCHLD, SIG_IGN);  // as a parent may have left it
  const auto result = shell("echo out; exit 3");
  ::signal(SIGCHLD, before);
  EXPECT_EQ(result.output, "out\n");
  EXPECT_FALSE(result.succeeded());
}

TEST(Subprocess, WhatItStartedEndsWithItsTime) {
  const TemporaryFolder folder;
  const auto file = folder.path() / "pid";
  shell("sh -c 'trap \"\" TERM; echo $$ >" + file.string() + "; exec sleep 60' & wait", 1s);
  const auto pid = text::parseInteger(text::trim(files::read(file).value_or("")));
  ASSERT_TRUE(pid);
  EXPECT_TRUE(eventually([&] { return ::kill(static_cast<pid_t>(*pid), 0) != 0; }));
}

TEST(Subprocess, StopsAtItsEndAndAtItsLimits) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(shell("sleep 30 & echo done").output, "done\n")
      << "ends with the child, whoever holds its output";
  EXPECT_EQ(shell("trap '' TERM; echo x; while :; do sleep 30; done", 50ms).end, End::timedOut);
  const auto long_ = shell("yes", 20s, 100'000);
  EXPECT_EQ(long_.end, End::outputTooLong);
  EXPECT_GT(long_.output.size(), 100'000u);
  EXPECT_LT(long_.output.size(), 300'000u);
  std::stop_source stop;
  std::jthread stopper([&] { stop.request_stop(); });
  EXPECT_THROW(shell("sleep 30", 20s, 10, stop.get_token()), Cancelled);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 15s);
}

}  // namespace
}  // namespace ostrel
