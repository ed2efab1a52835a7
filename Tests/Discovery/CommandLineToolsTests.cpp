#include <gtest/gtest.h>

#include "Discovery/CommandLineTools.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;

TEST(CommandLineTools, FindsWhatCanBeRunTheInheritedPathFirst) {
  TemporaryFolder folder;
  const auto tool = [&](const fs::path& name, bool executable) {
    const auto file = folder.write(name, "#!/bin/sh\n");
    if (executable) fs::permissions(file, fs::perms::owner_all);
    return file;
  };
  tool("plain/tool", false);
  fs::create_directories(folder.path() / "plain/nested");
  const auto first = tool("first/tool", true);
  const auto local = tool("home/.local/bin/tool", true);
  const auto other = tool("home/.npm-global/bin/other", true);
  tool("relative/only", true);

  Environment environment;
  environment.home = folder.path() / "home";
  const std::string root = folder.path().string();
  // A relative one leads there from wherever the program was started.
  const std::string relative = fs::relative(folder.path() / "relative").string();
  environment.variables["PATH"] = relative + "::" + root + "/plain:" + root + "/first";
  const CommandLineTools tools(environment);
  EXPECT_EQ(tools.find("tool"), first);
  EXPECT_EQ(tools.find("other"), other);
  EXPECT_FALSE(tools.find("only"));
  EXPECT_FALSE(tools.find("nested"));
  environment.variables.erase("PATH");
  EXPECT_EQ(CommandLineTools(environment).find("tool"), local);
}

TEST(CommandLineTools, ChildrenGetACleanEnvironment) {
  Environment environment;
  environment.home = "/home/me";
  environment.variables = {{"HERDR_SESSION", "x"}, {"ANTHROPIC_API_KEY", "k"}, {"CLAUDECODE", "1"},
                           {"KEEP", "yes"},        {"XHERDR_", "yes"},         {"PATH", "/mine"}};
  const CommandLineTools tools(environment);
  const std::string path =
      "/home/me/.local/bin:/home/me/bin:/home/me/.cargo/bin:/home/me/.npm-global/bin:/home/me/.linuxbrew/bin:"
      "/home/linuxbrew/.linuxbrew/bin:/usr/local/bin:/usr/bin:/bin:/snap/bin:/mine";
  using Map = std::map<std::string, std::string>;
  Map expected = {{"KEEP", "yes"}, {"PATH", path}, {"XHERDR_", "yes"}};
  EXPECT_EQ(tools.environment(true), expected);
  expected.insert({{"ANTHROPIC_API_KEY", "k"}, {"CLAUDECODE", "1"}});
  EXPECT_EQ(tools.environment(false), expected);
  environment.variables.erase("PATH");
  EXPECT_TRUE(CommandLineTools(environment).searchPath().ends_with("/bin:/bin"));
}

}  // namespace
}  // namespace ostrel
