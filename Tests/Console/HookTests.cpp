// `ostrelctl hook` beside a program that takes prompts.
#include <gtest/gtest.h>

#include "Peers/Serving.h"
#include "Runtime/Files.h"
#include "Support/HookHome.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

class HookCommand : public testing::Test {
 protected:
  ChildProcess::Finished hook(const std::string& action) {
    return runCommand({OSTREL_BIN_DIR "/ostrelctl", "hook", action}, hooks_.variables);
  }
  std::string settings() const { return files::read(file_).value_or("(none)"); }
  std::unique_ptr<ChildProcess> asking() {
    return hooks_.ask({{"session_id", "s"}, {"tool_name", "Bash"}, {"tool_input", {{"command", "ls"}}}});
  }
  // The running program's word on the hook, once it fits; null where it takes longer than a person waits.
  static Json word(Serving& serve, const std::function<bool(const Json&)>& fits,
                   std::chrono::milliseconds limit = 5s) {
    return serve.until("permissions", [&](const Json& event) { return fits(event["hook"]); }, limit);
  }
  static bool stands(const Json& hook) { return hook["stands"] == true && hook["problem"].is_null(); }
  static bool isOff(const Json& hook) { return hook["wanted"] == false && hook["stands"] == false; }

  HookHome hooks_;
  const std::filesystem::path file_ = hooks_.home.path() / "claude/settings.json";
};

TEST_F(HookCommand, OffAndOnTakeEffectInARunningProgramAndStay) {
  EXPECT_EQ(hook("status").status, 1) << "nothing has put it in yet";
  auto serve = std::make_unique<Serving>(OSTREL_BIN_DIR "/ostrelctl", hooks_.variables, hooks_.home.path());
  ASSERT_TRUE(word(*serve, stands, 20s).is_object());
  auto status = hook("status");
  EXPECT_EQ(status.status, 0);
  EXPECT_EQ(status.output,
            "The permission hook stands in " + file_.string() + ", and runs " + OSTREL_BIN_DIR "/Ostrel.\n");
  const auto waiting = asking();
  ASSERT_TRUE(serve->until("permissions", [](const Json& event) { return event["requests"].size() == 1; })
                  .is_object());

  const auto off = hook("off");
  EXPECT_EQ(off.status, 0) << off.errors;
  EXPECT_EQ(off.output, "The permission hook is turned off.\n");
  EXPECT_EQ(settings(), "{}\n");
  const Json now = word(*serve, isOff);
  ASSERT_TRUE(now.is_object());
  EXPECT_TRUE(now["requests"].empty() && now["hook"]["problem"].is_null());
  EXPECT_EQ(waiting->finish().output, "") << "left to the terminal";
  EXPECT_EQ(asking()->finish(2s).status, 0) << "nobody takes it";
  EXPECT_EQ(hook("status").status, 1);

  // At the next start too, until it is turned on.
  EXPECT_EQ(serve->finish().status, 0);
  serve = std::make_unique<Serving>(OSTREL_BIN_DIR "/ostrelctl", hooks_.variables, hooks_.home.path());
  ASSERT_TRUE(word(*serve, isOff, 20s).is_object());
  EXPECT_EQ(settings(), "{}\n");
  EXPECT_EQ(hook("on").status, 0);
  ASSERT_TRUE(word(*serve, stands).is_object());
  const auto again = asking();
  EXPECT_TRUE(serve->until("permissions", [](const Json& event) { return event["requests"].size() == 1; })
                  .is_object());
}

TEST_F(HookCommand, WhatAnotherProgramDidToTheSettingsIsTold) {
  hooks_.home.write("claude/settings.json", "{}\n");
  std::filesystem::permissions(file_, std::filesystem::perms(0444));
  Serving serve(OSTREL_BIN_DIR "/ostrelctl", hooks_.variables, hooks_.home.path());
  const auto says = [&](const std::string& words) {
    return word(
        serve,
        [&](const Json& hook) {
          return hook["problem"].is_string() && hook["problem"].get<std::string>().contains(words);
        },
        20s);
  };
  EXPECT_TRUE(says("is read-only, so it wasn't changed.").is_object());
  EXPECT_EQ(settings(), "{}\n");
  const auto on = hook("on");
  EXPECT_TRUE(on.status == 1 && on.errors.contains("is read-only")) << on.errors;
  EXPECT_TRUE(hook("status").errors.contains("is read-only"));

  std::filesystem::permissions(file_, std::filesystem::perms(0644));
  EXPECT_EQ(hook("on").status, 0);
  ASSERT_TRUE(word(serve, stands).is_object());
  files::replace(file_, "{}\n");
  EXPECT_TRUE(says("Another program took the permission hook out of " + file_.string()).is_object());
  files::replace(file_, "{ not JSON");
  EXPECT_TRUE(says("couldn't be read").is_object());
  EXPECT_EQ(hook("off").status, 1) << "it can't be told whether it is in there";
}

}  // namespace
}  // namespace ostrel
