#include <memory>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "Claude/ClaudePermissionServer.h"
#include "Claude/ClaudePermissions.h"
#include "Claude/ClaudeSettings.h"
#include "Runtime/Failure.h"
#include "Runtime/Files.h"
#include "Support/ChildProcess.h"
#include "Support/MemoryPreferences.h"
#include "Support/TemporaryFolder.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;

const std::string kCommand = "test -x '/o' && exec '/o' --permission-hook || exit 0";

const std::string kForms = R"({"matcher":"elicitation_dialog|elicitation_url_dialog|elicitation_response",)"
                           R"("hooks":[{"type":"command","command":")" +
                           kCommand + R"(","timeout":10}]})";

// "%" opens the list of groups, "@" is ours, "~" an old copy of it, "$" somebody else's; "^" is our list of
// the other event.
std::string settings(std::string text) {
  for (const auto& [sign, meaning] : std::initializer_list<std::pair<char, std::string>>{
           {'%', R"({"hooks":{"PermissionRequest":)"},
           {'@',
            R"({"matcher":"","hooks":[{"type":"command","command":")" + kCommand + R"(","timeout":600}]})"},
           {'^', R"(,"Notification":[)" + kForms + "]"},
           {'?', kForms},
           {'~', R"({"hooks":[{"command":"x"},{"command":"'/moved' --permission-hook"}]})"},
           {'$', R"({"matcher":"Bash","hooks":[{"type":"command","command":"audit"}]})"}}) {
    for (std::size_t at = 0; (at = text.find(sign, at)) != std::string::npos; at += meaning.size())
      text.replace(at, 1, meaning);
  }
  return text;
}

TEST(ClaudeSettingsTest, EditsTheValueAndNothingElse) {
  for (const auto& [before, on, off] : std::vector<std::array<const char*, 3>>{
           {R"({"hooks":null,"a":1})", R"({"a":1,"hooks":{"PermissionRequest":[@]^}})", R"({"a":1})"},
           {"%[1,~,@,[]]}}", "%[1,[],@]^}}", "%[1,[]]}}"},
           {R"(%[$,"x",{"hooks":[3,{"command":"--permission-hook"}]}]}})", R"(%[$,"x",@]^}})",
            R"(%[$,"x"]}})"},
           {R"({"hooks":{"PermissionRequest":null}})", "%[@]^}}", "{}"},
           {"%[~,@,~]}}", "%[@]^}}", "{}"},
           {R"(%[~,$,~,~,{"hooks":"--permission-hook"},@]}})", R"(%[$,{"hooks":"--permission-hook"},@]^}})",
            R"(%[$,{"hooks":"--permission-hook"}]}})"},
           {R"(%[~],"S":7}})", R"(%[@]^,"S":7}})", R"({"hooks":{"S":7}})"},
           {R"({"h\u006foks":{"PermissionRequest":[$]}})", "%[$,@]^}}", "%[$]}}"},
           {R"({"hooks":{"Stop":[$]},"hooks":{"PermissionRequest":[@]}})", "%[@]^}}", "{}"},
           // The other event in states of its own; what can't be a list of groups is left.
           {R"(%[@],"Notification":[~,$]}})",
            R"(%[@],"Notification":[$,)"
            "?]}}",
            R"({"hooks":{"Notification":[$]}})"},
           {R"({"hooks":{"Notification":null}})", "%[@]^}}", "{}"},
           {R"(%[],"Notification":[~]}})", "%[@]^}}", "{}"},
           {R"(%[$],"Notification":"off"}})", R"(%[$,@],"Notification":"off"}})",
            R"(%[$],"Notification":"off"}})"}}) {
    const auto text = claudeSettings::editText(settings(before), true, kCommand);
    EXPECT_EQ(json::parse(*text), json::parse(settings(on))) << before << "\n" << *text;
    EXPECT_EQ(claudeSettings::editText(*text, true, kCommand), text) << "nothing more to do";
    EXPECT_EQ(json::parse(*claudeSettings::editText(settings(before), false, kCommand)),
              json::parse(settings(off)));
  }
  for (const char* kept : {R"({"hooks":[$]})", R"({"hooks":{"PermissionRequest":{"a":1},"Stop":[$]}})"}) {
    const std::string text = settings(kept);
    EXPECT_TRUE(claudeSettings::wrongKind(*json::parse(text)));
    for (const bool on : {true, false}) EXPECT_EQ(claudeSettings::editText(text, on, kCommand), text);
  }
  for (const char* refused : {"", "// c\n{}", "{\"a\":1,}", "[]", "{} {}", "{\"a\":\"\xff\"}"})
    EXPECT_EQ(claudeSettings::editText(refused, true, kCommand), std::nullopt) << refused;
}

// Files as people have them. Putting the hook in adds bytes and changes none; taking it out gives them back.
TEST(ClaudeSettingsTest, KeepsTheFileAsItsOwnerWroteIt) {
  std::string on;
  for (const char* file :
       {"{\r\n \"b\": [1,\r\n  3],\r\n \"hooks\": {\r\n  \"PermissionRequest\": [\r\n   $\r\n  ]\r\n "
        "}\r\n}\r\n",
        "{\r\n}", R"({ "b": 1, "hooks": { "PreToolUse": [$], "PermissionRequest": [ $ ] }, "a": -0.0 })",
        "\xEF\xBB\xBF{\"a\\/b\": \"\\u00e9\\ud83d\\ude00 } ] \\\\\"}\n\n\n",
        "{\n\"hooks\":{\"PermissionRequest\":[{\n\"hooks\":[]}]}}",
        "{\n\n  \"allow\" : [ ] ,\n  \"hooks\" :\n  {\n    \"Stop\" : [ $ ]\n  }\n\n}",
        "{\n\t\"z\": 1.50,\n\t\"a\": 12345678901234567890123\n}\n"}) {
    const std::string before = settings(file);
    on = claudeSettings::editText(before, true, kCommand).value();
    EXPECT_EQ(json::parse(on), claudeSettings::edited(*json::parse(before), true, kCommand));
    std::size_t kept = 0;  // bytes of the file as it was that stand in the new one, in their order
    for (const char c : on) kept += kept < before.size() && before[kept] == c;
    EXPECT_EQ(kept, before.size()) << on;
    EXPECT_EQ(claudeSettings::editText(on, false, kCommand), before) << on;
  }
  EXPECT_TRUE(on.contains("123,\n\t\"hooks\": {\n\t\t\"PermissionRequest\": [\n\t\t\t{\n\t\t\t\t\"matcher\""))
      << on;
  EXPECT_TRUE(on.ends_with("\"timeout\": 10\n\t\t\t\t\t}\n\t\t\t\t]\n\t\t\t}\n\t\t]\n\t}\n}\n")) << on;
}

struct ClaudePermissionsTest : testing::Test {
  std::string text() const { return files::read(file).value_or("(none)"); }
  const TemporaryFolder home;
  const fs::path file = home.path() / ".claude/settings.json";
  const fs::path backup = file.string() + ".ostrel-backup";
  MemoryPreferences preferences;
  Json captured;
  const ClaudePermissions::Capture capture = [this](auto, const Json& properties) { captured = properties; };
  ClaudePermissions permissions{{{}, home.path(), {}}, "/o", preferences, capture};
};

TEST_F(ClaudePermissionsTest, EditsTheUsersFile) {
  permissions.installAtLaunch();
  const std::string fresh = text();
  EXPECT_FALSE(fs::exists(backup)) << "there was nothing to keep";
  for (const bool on : {false, true}) permissions.setInstalled(on);
  EXPECT_TRUE(text() == fresh && permissions.isInstalled());
  fs::remove(backup);

  const auto real = home.write("dotfiles/claude.json", "{\"a\": 1}");
  fs::permissions(real, fs::perms(0640));
  fs::remove(file);
  fs::create_symlink(real, file);
  for (const bool on : {true, false, true}) permissions.setInstalled(on);
  EXPECT_TRUE(fs::is_symlink(file) && permissions.isInstalled());
  EXPECT_EQ(fs::status(real).permissions(), fs::perms(0640));
  EXPECT_EQ(fs::status(backup).permissions(), fs::perms(0640));
  EXPECT_EQ(files::read(backup), "{\"a\": 1}");

  fs::remove(file);
  // As good as any file that is there but can't be read: it is not written anew.
  ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
  EXPECT_THROW(permissions.setInstalled(true), Failure);
  EXPECT_TRUE(fs::is_fifo(file));
}

TEST_F(ClaudePermissionsTest, TheUsersWordStands) {
  home.write(".claude/settings.json", "{ // mine\n}");
  EXPECT_THROW(permissions.setEnabled(true), Failure);
  permissions.installAtLaunch();
  EXPECT_TRUE(text() == "{ // mine\n}" && preferences.stored.empty() && captured.is_null());
  for (const char* before : {"%[@,$]}}", "%[~,@,$]}}", "%[$,~]}}"}) {
    home.write(".claude/settings.json", settings(before));
    permissions.installAtLaunch();
    std::string after = std::string_view(before).contains('@') ? before : "%[$,@]}}";
    EXPECT_EQ(json::parse(text()), json::parse(settings(after.insert(after.size() - 2, "^"))));
    const std::string complete = text();
    permissions.installAtLaunch();
    EXPECT_EQ(text(), complete);
  }
  EXPECT_TRUE(captured.is_null()) << "what an older version did not put in is no change of the person's mind";
  permissions.setEnabled(false);
  permissions.installAtLaunch();
  EXPECT_EQ(text(), settings("%[$]}}"));
  permissions.setEnabled(true);
  EXPECT_EQ(preferences.object(ClaudePermissions::kOffKey), false);
  EXPECT_EQ(captured, Json({{"on", true}, {"setting", "claude_prompts"}}));
}

// What hinders the hook is told, and leaves the file as it is.
TEST_F(ClaudePermissionsTest, SaysWhyTheHookCannotBePutIn) {
  const auto problem = [&](ClaudePermissions& of) {
    const std::string before = text();
    const auto written = fs::exists(file) ? fs::last_write_time(file) : fs::file_time_type();
    of.installAtLaunch();
    EXPECT_EQ(text(), before);
    EXPECT_TRUE(!fs::exists(file) || fs::last_write_time(file) == written);
    EXPECT_FALSE(of.state()->stands);
    return of.state()->problem;
  };
  ClaudePermissions relative{{{}, home.path(), {}}, "bin/Ostrel", preferences};
  EXPECT_TRUE(problem(relative).contains("/proc can't be read")) << problem(relative);
  EXPECT_THROW(relative.setInstalled(true), Failure);
  EXPECT_EQ(text(), "(none)");

  home.write(".claude/settings.json", "{ // mine\n}");
  EXPECT_TRUE(problem(permissions).contains("couldn't be read"));
  home.write(".claude/settings.json", R"({"hooks":[1]})");
  EXPECT_TRUE(problem(permissions).contains("\"hooks\" is no object"));
  EXPECT_THROW(permissions.setEnabled(true), Failure);
  // The folder would let us replace it, and root may write anything.
  home.write(".claude/settings.json", "{}");
  fs::permissions(file, fs::perms(0444));
  EXPECT_TRUE(problem(permissions).contains("is read-only"));
  EXPECT_THROW(permissions.setEnabled(true), Failure);
  permissions.setEnabled(false);  // nothing is to be changed in it
  EXPECT_EQ(permissions.state()->problem, "");
  fs::permissions(file, fs::perms(0644));
  permissions.setEnabled(true);
  fs::permissions(file, fs::perms(0444));
  EXPECT_THROW(permissions.setEnabled(false), Failure);
  EXPECT_TRUE(preferences.object(ClaudePermissions::kOffKey) == false);
}

TEST_F(ClaudePermissionsTest, SaysWhenAnotherProgramTookItOutOrItNamesNothing) {
  const auto program = home.write("it's here/Ostrel", "");
  fs::permissions(program, fs::perms(0755));
  ClaudePermissions installed{{{}, home.path(), {}}, program, preferences};
  installed.installAtLaunch();
  EXPECT_EQ(*installed.state(), (ClaudeHookState{true, true, program.string(), ""}));
  const std::string whole = text();
  home.write(".claude/settings.json", "{}");
  installed.seen(installed.look());
  EXPECT_TRUE(installed.state()->problem.starts_with("Another program took the permission hook out"));
  home.write(".claude/settings.json", whole);
  installed.seen(installed.look());
  EXPECT_EQ(installed.state()->problem, "");
  fs::remove(program);
  installed.seen(installed.look());
  EXPECT_TRUE(
      installed.state()->problem.ends_with("which is not there. Claude Code's prompts stay in their "
                                           "terminals."));
}

// The launcher in its hook role as a real process, run as Claude Code runs it.
struct PermissionHookTest : testing::Test {
  PermissionHookTest() {
    fs::create_directories(program.parent_path());
    fs::copy_file(fs::path(OSTREL_BIN_DIR) / "Ostrel", program);
    server.start();
  }
  // Starts the installed command with `input` on its standard input.
  std::unique_ptr<ChildProcess> hook(std::string_view input, const std::string& behind = "") {
    const std::string file = home.write("input", input);
    return std::make_unique<ChildProcess>(
        std::vector<std::string>{"/bin/sh", "-c", "( " + permissions.hookCommand() + " ) <" + file + behind},
        ChildProcess::Variables{{"HOME", home.path()}});
  }
  bool asked(std::size_t count) {
    return loop.waitUntil([&] { return server.requests()->size() == count; });
  }
  static std::string printed(ChildProcess& process) {
    const auto run = process.finish();
    return run.status == 0 ? run.output + run.errors : "(failed)";
  }

  const TemporaryFolder home;
  const fs::path program = home.path() / "it's here" / "Ostrel";
  const Environment environment{{}, home.path(), {}};
  MemoryPreferences preferences;
  ClaudePermissions permissions{environment, program, preferences};
  VirtualLoop loop;
  ClaudePermissionServer server{loop, ClaudePermissions::socketPath(environment)};
};

TEST_F(PermissionHookTest, PrintsTheAnswerOrNothing) {
  // Line breaks of both kinds, and more than one read of them.
  auto process = hook("\n{\r\n\"session_id\": \"s\",\n\"tool_name\": \"Bash\",\r\n\"x\": \"" +
                      std::string(300'000, 'p') + "\",\"tool_input\": {\"command\":\n\"ls\"}}\r\n\n");
  ASSERT_TRUE(asked(1));
  EXPECT_EQ(server.requests()->front().detail, "ls");
  server.answer(server.requests()->front(), {ClaudePermissionAnswer::Allow{}});
  EXPECT_EQ(printed(*process), R"({"hookSpecificOutput":{"decision":{"behavior":"allow"},)"
                               R"("hookEventName":"PermissionRequest"}})"
                               "\n");

  const std::string question = R"({"session_id":"s","tool_name":"Bash"})";
  process = hook(question);
  ASSERT_TRUE(asked(1));
  // Claude Code that has ended reads no answer: its hook must not wait for one, and the card goes.
  auto orphan = hook(question, " | true; echo ended");
  ASSERT_TRUE(asked(2));
  EXPECT_EQ(printed(*orphan), "ended\n");
  EXPECT_TRUE(asked(1));
  server.stop();
  EXPECT_EQ(printed(*process), "");
  EXPECT_EQ(printed(*hook(question)), "");  // no server
  fs::remove(program);
  EXPECT_EQ(printed(*hook(question)), "");  // no program
  const std::string longest(103, 'x');
  const auto socket = [&](const std::string& path) {
    return ClaudePermissions::socketPath({{{"OSTREL_PERMISSION_SOCKET", path}}, home.path(), {}});
  };
  EXPECT_TRUE(socket(longest) == longest && socket(longest + "x").empty() && socket("").empty());
}

}  // namespace
}  // namespace ostrel
