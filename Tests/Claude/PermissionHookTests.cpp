// The launcher in its hook role as a real process, run as Claude Code runs it, with and without a server.
#include <filesystem>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "Claude/ClaudePermissionServer.h"
#include "Claude/ClaudePermissions.h"
#include "Support/ChildProcess.h"
#include "Support/MemoryPreferences.h"
#include "Support/TemporaryFolder.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;

class PermissionHookTest : public testing::Test {
 protected:
  PermissionHookTest() {
    fs::create_directories(program.parent_path());
    fs::copy_file(fs::path(OSTREL_BIN_DIR) / "Ostrel", program);
    server.start();
  }
  // Starts the installed command; `input` is a file.
  std::unique_ptr<ChildProcess> hook(std::string_view input, const std::string& behind = "") {
    const auto file = folder.write("input", input);
    return std::make_unique<ChildProcess>(
        std::vector<std::string>{"/bin/sh", "-c",
                                 "( " + permissions.hookCommand() + " ) <'" + file.string() + "'" + behind},
        ChildProcess::Variables{{"HOME", folder.path().string()}});
  }
  bool asked(std::size_t count = 1) {
    return loop.waitUntil([&] { return server.requests()->size() == count; });
  }

  const TemporaryFolder folder;
  const fs::path program = folder.path() / "it's here" / "bin" / "Ostrel";
  const Environment environment{{}, folder.path(), {}};
  MemoryPreferences preferences;
  ClaudePermissions permissions{environment, program, preferences};
  VirtualLoop loop;
  ClaudePermissionServer server{loop, ClaudePermissions::socketPath(environment)};
};

TEST_F(PermissionHookTest, PrintsTheAnswerOfTheServer) {
  // Several lines of either kind, and more than one buffer of them.
  const std::string padding(300'000, 'p');
  auto process = hook("\n{\r\n\"session_id\": \"s\",\n\"tool_name\": \"Bash\",\r\n\"x\": \"" + padding +
                      "\",\"tool_input\": {\"command\":\n\"ls\"}}\r\n\n");
  ASSERT_TRUE(asked());
  EXPECT_EQ(server.requests()->front().detail, "ls");
  server.answer(server.requests()->front(), {ClaudePermissionAnswer::Deny{padding}});
  bool done = false;
  // The reply is longer than the socket holds, so the server must go on while the hook reads.
  ChildProcess::Finished run;
  std::thread reader([&] {
    run = process->finish();
    loop.post([&] { done = true; });
  });
  EXPECT_TRUE(loop.waitUntil([&] { return done; }));
  reader.join();
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.errors, "");
  EXPECT_TRUE(run.output.starts_with(R"({"hookSpecificOutput":{)"));
  EXPECT_TRUE(run.output.ends_with(padding + R"("},"hookEventName":"PermissionRequest"}})" + "\n"));
}

TEST_F(PermissionHookTest, SaysNothingWhereThereIsNoDecision) {
  const std::string question = R"({"session_id":"s","tool_name":"Bash"})";
  const auto quiet = [](ChildProcess& process) {
    const auto run = process.finish();
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output + run.errors, "");
  };
  auto first = hook(question);
  auto second = hook(question);
  ASSERT_TRUE(asked(2));
  server.finish(server.requests()->front().id, std::nullopt);
  server.stop();
  quiet(*first);
  quiet(*second);
  quiet(*hook(question));  // no server
  server.start();
  auto third = hook("\n\r\n");  // no question
  std::thread finish([&] {
    quiet(*third);
    loop.post([&] { server.stop(); });
  });
  EXPECT_TRUE(loop.waitUntil([&] { return !server.listening(); }));
  finish.join();
  fs::remove(program);
  quiet(*hook(question));
}

TEST_F(PermissionHookTest, EndsWhenNobodyReadsItsOutput) {
  auto process = hook(R"({"session_id":"s","tool_name":"Bash"})", " | true; echo \"ended with $?\"");
  ASSERT_TRUE(asked());
  EXPECT_EQ(process->line(std::chrono::seconds(20)), "ended with 0");
  EXPECT_TRUE(asked(0)) << "its card goes too";
}

}  // namespace
}  // namespace ostrel
