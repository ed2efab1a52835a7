// What a request asks, in a line.
#include <gtest/gtest.h>

#include "Client/RequestHeading.h"

namespace ostrel {
namespace {

HerdrAgent agentIn(const char* folder) {
  HerdrAgent agent;
  agent.context = folder;
  return agent;
}

std::string claude(const std::string& tool, const std::string& input, const char* folder = "/code/payments") {
  const auto request = ClaudePermissionRequest::parse(
      R"({"session_id":"s","tool_name":")" + tool + R"(","tool_input":)" + input + "}", "id", {});
  return requestHeading({"id", "", {}, request.value()}, agentIn(folder));
}

std::string codex(const char* method, const char* payload, const char* folder = "/code/payments") {
  const CodexRequest request{"E", "1", "t", method, payload};
  return requestHeading({"id", "", {}, CodexAsked{request, CodexCard::of(request, {}), false, ""}},
                        agentIn(folder));
}

TEST(RequestHeadingTest, ClaudeSaysWhatTheToolDoesNotWhatItIsCalled) {
  EXPECT_EQ(claude("Bash", R"({"command":"rm -rf /","description":"Read a file"})"),
            "Claude wants to run a command in payments");
  EXPECT_EQ(claude("Bash", R"({"command":"ls"})", "Local session"), "Claude wants to run a command");
  EXPECT_EQ(claude("AskUserQuestion", R"({"questions":[{"question":"One?"}]})"), "Claude asks a question");
  EXPECT_EQ(claude("AskUserQuestion", R"({"questions":[{"question":"One?"},{"question":"Two?"}]})"),
            "Claude asks 2 questions");
  EXPECT_EQ(claude("mcp__github__create_issue", "{}"), "Claude wants to use github · create_issue");
  EXPECT_EQ(claude("WebFetch", R"({"url":"x"})"), "Claude wants to open a web page");
  EXPECT_EQ(claude("ExitPlanMode", R"({"plan":"x"})"), "Claude asks you to approve its plan");
}

TEST(RequestHeadingTest, AFileIsNamedWithTheSideOfTheProjectOnWhichItLies) {
  const auto edit = [](const char* path, const char* folder = "/code/payments") {
    return claude("Edit", std::string(R"({"new_string":"a","file_path":")") + path + "\"}", folder);
  };
  EXPECT_EQ(edit("/code/payments/src/a.cpp"), "Claude wants to edit a.cpp in payments");
  EXPECT_EQ(edit("src/a.cpp", "/code/payments/"), "Claude wants to edit a.cpp in payments");
  for (const char* const path : {"/etc/a.cpp", "/code/payments2/a.cpp", "/code/payments/../a.cpp"})
    EXPECT_EQ(edit(path), "Claude wants to edit a.cpp outside payments") << path;
  EXPECT_EQ(edit("/etc/a.cpp", "Local session"), "Claude wants to edit a.cpp");
  EXPECT_EQ(claude("Write", R"({"file_path":"/code/payments/b","content":""})"),
            "Claude wants to write b in payments");
  EXPECT_EQ(claude("Read", R"({"file_path":"/etc/passwd"})"), "Claude wants to read passwd outside payments");
}

TEST(RequestHeadingTest, CodexSaysItsSubject) {
  EXPECT_EQ(codex("item/commandExecution/requestApproval", R"({"command":"ls"})"),
            "Codex wants to run a command in payments");
  EXPECT_EQ(codex("execCommandApproval", R"({"networkApprovalContext":{"host":"h"}})"),
            "Codex wants to use the network");
  EXPECT_EQ(codex("applyPatchApproval",
                  R"({"changes":[{"path":"/code/payments/a"},{"path":"/code/payments/b"},{"path":"c"}]})"),
            "Codex wants to edit 3 files in payments");
  EXPECT_EQ(codex("applyPatchApproval", R"({"changes":[{"path":"/code/payments/a"},{"path":"/b"}]})"),
            "Codex wants to edit 2 files in and outside payments");
  EXPECT_EQ(codex("item/fileChange/requestApproval", "{}"), "Codex wants to edit files")
      << "none are known yet";
  EXPECT_EQ(codex("item/tool/requestUserInput", R"({"questions":[{"id":"a"},{"id":"b"}]})"),
            "Codex asks 2 questions");
  EXPECT_EQ(
      codex("mcpServer/elicitation/request",
            R"({"serverName":"tracker","_meta":{"codex_approval_kind":"x","tool_name":"close_issue"}})"),
      "Codex wants to use close_issue of tracker");
  EXPECT_EQ(codex("mcpServer/elicitation/request", R"({"mode":"url","url":"https://example.org"})"),
            "A connected app asks you to open a link");
}

TEST(RequestChoiceTest, LettersStandForDecisionsOnly) {
  const auto keys = [](const std::vector<RequestChoice>& choices) {
    std::string all;
    for (const std::string& key : choiceKeys(choices)) all += key.empty() ? "-" : key;
    return all;
  };
  EXPECT_EQ(keys({{"a", "", true}, {"b", "", true}, {"c", "", true}, {"d", ""}, {"e", ""}}), "YA-N-");
  EXPECT_EQ(keys({{"submit", "", true, true}, {"d", ""}}), "--") << "a letter may be part of an answer";
  EXPECT_EQ(keys({{"done", ""}, {"d", ""}}), "--") << "nothing is allowed by it";
  EXPECT_EQ(keys({{"n", ""}, {"y", "", true}}), "NY");
}

}  // namespace
}  // namespace ostrel
