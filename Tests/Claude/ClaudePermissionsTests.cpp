#include <filesystem>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "Claude/ClaudePermissions.h"
#include "Claude/ClaudeSettings.h"
#include "Runtime/Failure.h"
#include "Runtime/Files.h"
#include "Support/MemoryPreferences.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;

const std::string kCommand = "test -x '/o' && exec '/o' --permission-hook || exit 0";
const std::string kGroup =
    R"({"matcher":"","hooks":[{"type":"command","command":")" + kCommand + R"(","timeout":600}]})";
const std::string kOld = R"({"hooks":[{"command":"x"},{"command":"'/moved' --permission-hook"}]})";
const std::string kTheirs = R"({"matcher":"Bash","hooks":[{"type":"command","command":"audit"}]})";

std::string put(std::string text, std::string_view what, const std::string& by) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
    text.replace(at, what.size(), by);
  return text;
}
// "@" is our group, "~" an old copy of it, "$" somebody else's.
std::string settings(const std::string& text) {
  return put(put(put(text, "@", kGroup), "~", kOld), "$", kTheirs);
}

TEST(ClaudeSettingsTest, EditsTheValueAndNothingElse) {
  struct Case {
    std::string before, on, off;
  };
  const std::string only = R"({"hooks":{"PermissionRequest":[@]}})";
  const Case cases[] = {
      {"{}", only, "{}"},
      {R"({"hooks":{}})", only, "{}"},
      {R"({"hooks":null,"a":1})", R"({"a":1,"hooks":{"PermissionRequest":[@]}})", R"({"a":1})"},
      {R"({"hooks":[$]})", only, "{}"},
      {R"({"hooks":{"PermissionRequest":7}})", only, "{}"},
      {R"({"hooks":{"PermissionRequest":[1,@]}})", only, "{}"},
      {R"({"hooks":{"PermissionRequest":[]}})", only, "{}"},
      {R"({"hooks":{"PermissionRequest":[@]}})", only, "{}"},
      {R"({"hooks":{"PermissionRequest":[~,@,~]}})", only, "{}"},
      {R"({"hooks":{"PermissionRequest":[~,$,~,~,$]}})", R"({"hooks":{"PermissionRequest":[$,$,@]}})",
       R"({"hooks":{"PermissionRequest":[$,$]}})"},
      {R"({"hooks":{"PermissionRequest":[$,~,$,{},{"hooks":"--permission-hook"},@]}})",
       R"({"hooks":{"PermissionRequest":[$,$,{},{"hooks":"--permission-hook"},@]}})",
       R"({"hooks":{"PermissionRequest":[$,$,{},{"hooks":"--permission-hook"}]}})"},
      {R"({"hooks":{"Stop":[$],"PermissionRequest":[~]},"b":{"hooks":{}}})",
       R"({"hooks":{"Stop":[$],"PermissionRequest":[@]},"b":{"hooks":{}}})",
       R"({"hooks":{"Stop":[$]},"b":{"hooks":{}}})"},
      {R"({"a":"\"}","hooks":{"Stop":[]},"z":[{}]})",
       R"({"a":"\"}","hooks":{"Stop":[],"PermissionRequest":[@]},"z":[{}]})",
       R"({"a":"\"}","hooks":{"Stop":[]},"z":[{}]})"},
      {R"({"h\u006foks":{"PermissionRequest":[$]},"x":1e2})",
       R"({"h\u006foks":{"PermissionRequest":[$,@]},"x":1e2})",
       R"({"h\u006foks":{"PermissionRequest":[$]},"x":1e2})"},
      {R"({"hooks":{"Stop":[$]},"hooks":{"PermissionRequest":[@]}})", only, "{}"},
  };
  for (const Case& c : cases) {
    const std::string before = settings(c.before);
    const auto on = claudeSettings::editText(before, true, kCommand);
    const auto off = claudeSettings::editText(before, false, kCommand);
    EXPECT_EQ(json::parse(*on), json::parse(settings(c.on))) << before << "\n" << *on;
    EXPECT_EQ(json::parse(*off), json::parse(settings(c.off))) << before << "\n" << *off;
    EXPECT_TRUE(claudeSettings::hasCommand(*json::parse(*on), kCommand));
    EXPECT_FALSE(claudeSettings::hasOurHook(*json::parse(*off)));
    EXPECT_EQ(claudeSettings::editText(*on, true, kCommand), on) << "nothing more to do";
  }
  for (const char* refused :
       {"", " ", "// c\n{}", "{\"a\":1,}", "[]", "null", "{} {}", "{'a':1}", "{\"a\":\"\xff\"}"})
    EXPECT_EQ(claudeSettings::editText(refused, true, kCommand), std::nullopt) << refused;
}

// Files as people have them. Putting the hook in adds bytes in one place; taking it out gives them back.
TEST(ClaudeSettingsTest, KeepsTheFileAsItsOwnerWroteIt) {
  const std::string files[] = {
      "{\n  \"model\": \"opus\",\n  \"env\": {\"A\": \"1\"}\n}\n",
      "{\n\t\"z\": 1.50,\n\t\"a\": 12345678901234567890123,\n\t\"hooks\": {\n\t\t\"Stop\": []\n\t}\n}",
      "{\r\n    \"b\": [1,2,\r\n  3],\r\n    \"hooks\": {\r\n        \"PermissionRequest\": [\r\n            "
      "$\r\n"
      "        ]\r\n    }\r\n}\r\n",
      R"({"b":1,"hooks":{"PermissionRequest":[$]},"a":-0.0})",
      R"({ "b": 1, "hooks": { "PreToolUse": [$], "PermissionRequest": [ $ ] } })",
      "\xEF\xBB\xBF{\"a\\/b\": \"\\u00e9\\ud83d\\ude00 } ] \\\\\"}\n\n\n",
      "{\n\"hooks\":{\"PermissionRequest\":[{\n\"hooks\":[]}]}}",
      "{\n\n  \"permissions\" : { \"allow\" : [ ] } ,\n  \"hooks\" :\n  {\n    \"Stop\" : [ $ ]\n  }\n\n}",
  };
  for (const std::string& file : files) {
    const std::string before = settings(file);
    const std::string on = claudeSettings::editText(before, true, kCommand).value();
    EXPECT_EQ(json::parse(on), claudeSettings::edited(*json::parse(before), true, kCommand));
    const auto kept = std::ranges::mismatch(before, on).in1 - before.begin();
    EXPECT_TRUE(on.ends_with(before.substr(static_cast<std::size_t>(kept)))) << on;
    EXPECT_EQ(claudeSettings::editText(on, false, kCommand), before) << on;
  }
  // The layout follows the file's own.
  EXPECT_EQ(
      claudeSettings::editText("{\n\t\"a\": {},\n\t\"hooks\": {}\n}\n", true, "x --permission-hook"),
      "{\n\t\"a\": {},\n\t\"hooks\": {\n\t\t\"PermissionRequest\": [\n\t\t\t{\n\t\t\t\t\"matcher\": \"\",\n"
      "\t\t\t\t\"hooks\": [\n\t\t\t\t\t{\n\t\t\t\t\t\t\"type\": \"command\",\n"
      "\t\t\t\t\t\t\"command\": \"x --permission-hook\",\n\t\t\t\t\t\t\"timeout\": 600\n\t\t\t\t\t}\n"
      "\t\t\t\t]\n\t\t\t}\n\t\t]\n\t}\n}\n");
  EXPECT_EQ(claudeSettings::editText(R"({"a":1})", true, kCommand),
            settings(R"({"a":1,"hooks":{"PermissionRequest":[@]}})"));
}

class ClaudePermissionsTest : public testing::Test {
 protected:
  std::string text() const { return files::read(file).value_or("(none)"); }
  static unsigned mode(const fs::path& path) {
    struct stat info;
    return ::lstat(path.c_str(), &info) == 0 ? info.st_mode & 0777 : 0;
  }
  const TemporaryFolder home;
  const fs::path file = home.path() / ".claude/settings.json";
  const fs::path backup = home.path() / ".claude/settings.json.ostrel-backup";
  MemoryPreferences preferences;
  std::string captured;
  ClaudePermissions permissions{
      {{}, home.path(), {}}, "/o", preferences, [this](std::string_view event, const Json& properties) {
        captured += std::string(event) + json::dump(properties);
      }};
};

TEST_F(ClaudePermissionsTest, EditsTheUsersFile) {
  permissions.setInstalled(false);
  EXPECT_FALSE(fs::exists(file));
  permissions.setInstalled(true);
  const std::string fresh = text();
  EXPECT_TRUE(permissions.isInstalled());
  EXPECT_FALSE(fs::exists(backup)) << "there was nothing to keep";
  permissions.setInstalled(false);
  EXPECT_EQ(text(), "{}\n");
  permissions.setInstalled(true);
  EXPECT_EQ(text(), fresh);

  fs::remove_all(file.parent_path());
  const auto real = home.write("dotfiles/claude.json", "{\"a\": 1}");
  fs::permissions(real, fs::perms(0640));
  fs::create_directories(file.parent_path());
  fs::create_symlink(real, file);
  permissions.setInstalled(true);
  EXPECT_TRUE(fs::is_symlink(file));
  EXPECT_EQ(mode(real), 0640u);
  EXPECT_EQ(mode(backup), 0640u);
  permissions.setInstalled(false);
  permissions.setInstalled(true);
  EXPECT_EQ(files::read(backup), "{\"a\": 1}");
  EXPECT_NE(files::read(real), "{\"a\": 1}");

  fs::remove(file);
  fs::create_directory(file);  // as good as any file that is there but can't be read
  EXPECT_THROW(permissions.setInstalled(true), Failure);
  EXPECT_EQ(permissions.readSettings(), std::nullopt);
}

TEST_F(ClaudePermissionsTest, TheUsersWordStands) {
  home.write(".claude/settings.json", "{ // mine\n}");
  try {
    permissions.setEnabled(true);
    ADD_FAILURE();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.message(), "Claude Code's settings.json couldn't be read, so it wasn't changed.");
  }
  permissions.installAtLaunch();
  EXPECT_EQ(text(), "{ // mine\n}");
  EXPECT_TRUE(preferences.stored.empty() && captured.empty());
  EXPECT_FALSE(permissions.isInstalled());

  home.write(".claude/settings.json", settings(R"({"hooks":{"PermissionRequest":[@,$]}})"));
  const std::string current = text();
  permissions.installAtLaunch();
  EXPECT_EQ(text(), current) << "its own command is there, wherever";
  home.write(".claude/settings.json", settings(R"({"hooks":{"PermissionRequest":[~]}})"));
  permissions.installAtLaunch();
  EXPECT_EQ(text(), settings(R"({"hooks":{"PermissionRequest":[@]}})")) << "the program was moved";
  permissions.setEnabled(false);
  EXPECT_EQ(preferences.object(ClaudePermissions::kOffKey), true);
  permissions.installAtLaunch();
  EXPECT_EQ(text(), "{}");
  permissions.setEnabled(true);
  EXPECT_EQ(preferences.object(ClaudePermissions::kOffKey), false);
  EXPECT_TRUE(permissions.isInstalled());
  EXPECT_EQ(captured, R"(setting_changed{"on":false,"setting":"claude_prompts"})"
                      R"(setting_changed{"on":true,"setting":"claude_prompts"})");
}

TEST_F(ClaudePermissionsTest, Paths) {
  const auto socket = [&](std::map<std::string, std::string, std::less<>> variables,
                          std::optional<std::int32_t> fixture = {}) {
    return ClaudePermissions::socketPath({std::move(variables), home.path(), {}}, fixture);
  };
  const fs::path data = home.path() / "d/a";
  EXPECT_EQ(socket({{"XDG_DATA_HOME", data}}), data / "ostrel/permissions.sock");
  EXPECT_EQ(mode(data / "ostrel"), 0700u);
  EXPECT_EQ(socket({{"XDG_DATA_HOME", ""}}, 120), home.path() / ".local/share/ostrel/permissions-120.sock");
  EXPECT_EQ(socket({{"OSTREL_PERMISSION_SOCKET", "rel/x"}, {"XDG_DATA_HOME", data}}, 120), "rel/x");
  EXPECT_EQ(socket({{"OSTREL_PERMISSION_SOCKET", ""}}), "");
  EXPECT_EQ(socket({{"OSTREL_PERMISSION_SOCKET", std::string(103, 'x')}}), std::string(103, 'x'));
  EXPECT_EQ(socket({{"OSTREL_PERMISSION_SOCKET", std::string(104, 'x')}}), "");
  const auto url = [&](const std::string& folder) {
    return ClaudePermissions({{{"CLAUDE_CONFIG_DIR", folder}}, home.path(), {}}, "/o", preferences)
        .settingsURL();
  };
  EXPECT_EQ(permissions.settingsURL(), file);
  EXPECT_EQ(url("/c"), "/c/settings.json");
  EXPECT_EQ(url(""), "settings.json");
}

}  // namespace
}  // namespace ostrel
