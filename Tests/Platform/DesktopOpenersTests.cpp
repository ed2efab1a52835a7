#include <unistd.h>

#include <gtest/gtest.h>

#include "Platform/Linux/DesktopOpeners.h"
#include "Runtime/Failure.h"
#include "Runtime/Files.h"
#include "Support/Eventually.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;

class DesktopOpenersTest : public testing::Test {
 protected:
  std::string program(const std::string& name, const std::string& text = "") {
    const fs::path path = folder_.write("bin/" + name, "#!/bin/sh\n" + text);
    fs::permissions(path, fs::perms::owner_all);
    return path;
  }
  DesktopTerminals terminals() const {
    return {{environment_, folder_.path() / "bin"}, {folder_.path() / "share"}};
  }
  TemporaryFolder folder_;
  Environment environment_;
};

TEST_F(DesktopOpenersTest, TerminalsAreFoundByTheRulesOfTheDesktop) {
  using Words = std::vector<std::string>;
  const auto command = [&] { return terminals().command("/x/a b"); };
  folder_.write("share/applications/t.desktop",
                "[Desktop Entry]\nType=Application\nExec=gnome-terminal\nCategories=TerminalEmulator;");
  EXPECT_EQ(command(), Words{}) << "no entry's program is installed";
  const std::string gnome = program("gnome-terminal");
  EXPECT_EQ(command(), (Words{gnome, "--", "/x/a b"}));
  const std::string any = program("x-terminal-emulator");
  EXPECT_EQ(command(), (Words{any, "-e", "/x/a b"}));
  const std::string own = program("kitty");
  environment_.variables["TERMINAL"] = "kitty --single-instance";
  EXPECT_EQ(command(), (Words{own, "--single-instance", "-e", "/x/a b"}));
}

TEST_F(DesktopOpenersTest, WhatIsOpenedIsNobodysChild) {
  EXPECT_THROW(terminals().open("/x/a b"), Failure);
  fs::permissions(folder_.write("bin/x-terminal-emulator", "no program"), fs::perms::owner_all);
  EXPECT_THROW(terminals().open("/x/a b"), Failure) << "the kernel refuses it";
  const fs::path result = folder_.path() / "result";
  program("xdg-terminal-exec", "echo \"$PPID $1\" > \"$0.part\"; mv \"$0.part\" " + result.string());
  environment_.variables["PATH"] = "/usr/bin:/bin";
  terminals().open("/x/a b");
  EXPECT_TRUE(eventually([&] { return files::read(result).has_value(); }));
  const std::string text = files::read(result).value_or("");
  EXPECT_TRUE(text.ends_with(" /x/a b\n")) << text;
  EXPECT_FALSE(text.starts_with(std::to_string(::getpid()) + " "));
}

}  // namespace
}  // namespace ostrel
