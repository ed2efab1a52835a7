#include <gtest/gtest.h>

#include "Codex/CodexAnswers.h"
#include "Codex/CodexCardModel.h"
#include "Codex/CodexDiff.h"
#include "Codex/CodexForm.h"
#include "Runtime/Failure.h"

namespace ostrel {
namespace {

const std::string kThread = "0190c0de-0000-7000-8000-000000000001";
const char* const kCommand = "item/commandExecution/requestApproval";
const char* const kFiles = "item/fileChange/requestApproval";
const char* const kAccess = "item/permissions/requestApproval";
const char* const kElicitation = "mcpServer/elicitation/request";

std::optional<CodexRequest> parsed(std::string id, std::string method, std::string params) {
  std::string bytes = R"({"id":)" + id + R"(,"method":")" + method + R"(","params":)" + params + "}";
  const auto message = CodexMessage::parse(bytes);
  return message ? CodexRequest::parse(*message, "E") : std::nullopt;
}
// `params` lacks the thread.
CodexRequest request(const std::string& method, const std::string& params = "{}") {
  Json all = Json::parse(params);
  all["threadId"] = kThread;
  return parsed("0", method, all.dump()).value();
}

TEST(CodexRequest, ParsesOnlyWhatAThreadAsks) {
  const auto old =
      parsed("1e2", "execCommandApproval", R"({"z":1,"a":[null],"conversationId":")" + kThread + "\"}");
  ASSERT_TRUE(old);
  EXPECT_EQ(*old, (CodexRequest{"E", "1e2", kThread, "execCommandApproval",
                                R"({"a":[null],"conversationId":")" + kThread + R"(","z":1})"}));
  EXPECT_EQ(old->id(), "E:MWUy");
  const std::string good = R"({"threadId":")" + kThread + "\"}";
  EXPECT_TRUE(parsed("\"x\"", kCommand, good));
  EXPECT_FALSE(parsed("null", kCommand, good) || parsed("1", "item/tool/call", good) ||
               parsed("1", kCommand, R"({"threadId":"no-uuid"})") || parsed("1", kCommand, "[]"));
  EXPECT_EQ(request("execCommandApproval", R"({"networkApprovalContext":{}})").title(),
            "Allow network access?");
  EXPECT_EQ(request(kElicitation, R"({"serverName":"kit"})").title(), "kit");
}

TEST(CodexRequest, ChoicesByteForByte) {
  const auto choices = [](const CodexRequest& asked) {
    std::string all;
    for (const auto& choice : asked.choices()) all += choice.title + "|" + choice.result + "\n";
    return all;
  };
  const std::string usual =
      "Allow once|{\"decision\":\"accept\"}\nAllow for this session|{\"decision\":\"acceptForSession\"}\n"
      "Deny|{\"decision\":\"decline\"}\nCancel action|{\"decision\":\"cancel\"}\n";
  EXPECT_EQ(choices(request(kCommand)), usual);
  EXPECT_EQ(choices(request(kFiles, R"({"availableDecisions":null})")), usual);
  EXPECT_EQ(choices(request(kCommand, R"({"availableDecisions":[]})")), "");
  EXPECT_EQ(choices(request(kCommand, R"({"availableDecisions":["cancel", "unknown", 5,
      {"acceptWithExecpolicyAmendment": {"execpolicy_amendment": ["git", "tag"]}},
      {"acceptWithExecpolicyAmendment": {"execpolicy_amendment": ["git", 1]}},
      {"applyNetworkPolicyAmendment": {"network_policy_amendment": {"host": "x.org", "action": "allow"}}},
      {"applyNetworkPolicyAmendment": {"network_policy_amendment": {"host": "x.org"}}}]})")),
            "Always allow: git tag|{\"decision\":{\"acceptWithExecpolicyAmendment\":"
            "{\"execpolicy_amendment\":[\"git\",\"tag\"]}}}\n"
            "Allow future access to x.org|{\"decision\":{\"applyNetworkPolicyAmendment\":"
            "{\"network_policy_amendment\":{\"action\":\"allow\",\"host\":\"x.org\"}}}}\n"
            "Deny|{\"decision\":\"decline\"}\nCancel action|{\"decision\":\"cancel\"}\n");
  // What a command's list leaves out and the server takes all the same.
  EXPECT_EQ(choices(request(kCommand, R"({"availableDecisions":["accept","cancel"]})")), usual);
  EXPECT_EQ(choices(request("applyPatchApproval")),
            "Allow once|{\"decision\":\"approved\"}\nDeny|{\"decision\":\"denied\"}\n"
            "Cancel action|{\"decision\":\"abort\"}\n");
  EXPECT_EQ(choices(request(kAccess, R"({"permissions":{"network":{"on":1},"fileSystem":null,"macos":{}}})")),
            "Allow for this turn|{\"permissions\":{\"network\":{\"on\":1}},\"scope\":\"turn\"}\n"
            "Deny|{\"permissions\":{},\"scope\":\"turn\"}\n");
  EXPECT_EQ(choices(request(kAccess, R"({"permissions":1})")), "");
  EXPECT_EQ(choices(request(kElicitation)),
            "Decline|{\"_meta\":null,\"action\":\"decline\",\"content\":null}\n"
            "Cancel|{\"_meta\":null,\"action\":\"cancel\",\"content\":null}\n");
}

// What the entries for one required field become, or the words that refuse them.
std::string field(const std::string& rules, std::initializer_list<const char*> entries) {
  std::string all;
  for (const char* const entry : entries) {
    try {
      all += CodexForm::values({{"required", {"f"}}, {"properties", {{"f", Json::parse(rules)}}}},
                               {{"f", entry}})["f"]
                 .dump() +
             " ";
    } catch (const Failure& failure) {
      all += failure.message() + " ";
    }
  }
  return all;
}

TEST(CodexForm, EveryRowOfTheTable) {
  EXPECT_EQ(field(R"({"type":"string","title":"N","minLength":2,"maxLength":3})",
                  {" ab ", "e\u0301e\u0301", "a", "abcd", " \n"}),
            "\"ab\" \"e\u0301e\u0301\" Check the length of N. Check the length of N. Complete N. ");
  EXPECT_EQ(field(R"({"type":"string","enum":["a","b"]})", {"b", "c"}), "\"b\" Choose an option for f. ");
  EXPECT_EQ(field(R"({"type":"string","oneOf":[{"const":"x","title":"X"}]})", {"x", "X"}),
            "\"x\" Choose an option for f. ");
  EXPECT_EQ(field(R"({"type":"boolean"})", {"true", "false", "Yes"}), "true false Choose Yes or No for f. ");
  EXPECT_EQ(field(R"({"type":"number"})", {"+0.25", "-15e1"}), "0.25 -150 ");
  for (const char* const bad : {"NaN", "inf", "1e999", "2.5", "1", "5", "2x", "+-2", "0x2"})
    EXPECT_EQ(field(R"({"type":"integer","minimum":2,"maximum":4})", {"2.0", bad}),
              "2 Enter a valid number for f. ");
  const std::string list = R"({"type":"array","minItems":1,"maxItems":2,"items":{"enum":["a","b"]}})";
  for (const char* const bad : {"[1]", "a", R"({"a":1})"})
    EXPECT_EQ(field(list, {R"(["b", "a"])", bad}), "[\"b\",\"a\"] Enter a JSON list of choices for f. ");
  for (const char* const bad : {"[]", R"(["a","b","a"])", R"(["c"])"})
    EXPECT_EQ(field(list, {bad}), "Choose valid options for f. ");
  EXPECT_EQ(field(R"({"type":"array","items":{"anyOf":[{"const":"x"}]}})", {R"(["x"])", R"(["y"])"}),
            "[\"x\"] Choose valid options for f. ");
  EXPECT_EQ(field(R"({"title":"T"})", {"x"}), "Unsupported field type for T; nothing was submitted. ");
  EXPECT_EQ(CodexForm::formResult(Json::parse(R"({"properties":{"n":{"type":"number"}}})"), {{"n", " "}}),
            R"({"_meta":null,"action":"accept","content":{}})");
  EXPECT_THROW(CodexForm::values({{"type", "object"}}, {}), Failure);
  const Json questions = Json::parse(R"([{"id":"q1"}, {"id":"q2"}])");
  EXPECT_EQ(CodexForm::questionsResult(questions, {{"q1", " as typed "}, {"q2", "x"}}),
            R"({"answers":{"q1":{"answers":[" as typed "]},"q2":{"answers":["x"]}}})");
  EXPECT_THROW(CodexForm::questionsResult(questions, {{"q1", "x"}, {"q2", " "}}), Failure);
}

TEST(CodexCard, ShowsWhatWouldBeAllowed) {
  const auto command = request(kCommand, R"({"itemId":"i","additionalPermissions":{"network":1}})");
  EXPECT_EQ(CodexCard::itemKey(command), kThread + ":i");
  const auto card = CodexCard::of(command, R"({"command":["ls","-l"],"cwd":"/w"})");
  EXPECT_EQ(card.command.value_or("") + card.folder.value_or("") + card.access.value_or(""),
            "ls -l/w{\n  \"network\": 1\n}");
  const auto elicited = [](const std::string& params) {
    return CodexCard::of(request(kElicitation, params), {});
  };
  const auto tool = elicited(R"({"mode":"form","requestedSchema":{"type":"object","properties":{}},
      "_meta":{"codex_approval_kind":"mcp_tool_call","tool_name":"echo","tool_params":{"text":"hi"}}})");
  EXPECT_EQ(tool.tool, (CodexCard::Tool{"echo", "{\n  \"text\": \"hi\"\n}"}));
  EXPECT_EQ(elicited(R"({"mode":"url","url":"HTTPS://x.org/a?b"})").link, "HTTPS://x.org/a?b");
  for (const char* const scheme :
       {"file:///etc", "vscode://file/x", "steam://run/1", "ssh://h/p", "javascript:1"})
    EXPECT_EQ(elicited(R"({"mode":"url","url":")" + std::string(scheme) + "\"}").step,
              CodexCard::Step::unsupported)
        << scheme;
  for (const char* const bad :
       {R"({"mode":"url","url":"https://"})", R"({"mode":"form","requestedSchema":{}})", R"({})"})
    EXPECT_EQ(elicited(bad).step, CodexCard::Step::unsupported) << bad;
}

// What goes back for an answer, or the words that refuse it.
std::string answered(const CodexRequest& asked, const RequestAnswer& answer, bool linkOpened = false) {
  try {
    return codexAnswers::result(asked, CodexCard::of(asked, {}, linkOpened), linkOpened, answer);
  } catch (const Failure& failure) {
    return failure.message();
  }
}

TEST(CodexAnswers, OnlyWhatTheCardOffersIsTaken) {
  const auto titles = [](const CodexRequest& asked, bool linkOpened = false) {
    std::string all;
    for (const RequestChoice& choice : CodexCard::of(asked, {}, linkOpened).choices)
      all += choice.title + (choice.grants ? "!" : "") + "|";
    return all;
  };
  const auto command = request(kCommand, R"({"availableDecisions":["accept","cancel"]})");
  EXPECT_EQ(titles(command), "Allow once!|Allow for this session!|Deny|Cancel action|");
  EXPECT_EQ(titles(request("applyPatchApproval", "{}")), "Allow once!|Deny|Cancel action|");
  EXPECT_EQ(titles(request(kAccess, R"({"permissions":{"network":{}}})")), "Allow for this turn!|Deny|");
  for (const char* const choice : {"done", "skip", "submit", "allow", "bm90aGluZw=="})
    EXPECT_EQ(answered(command, {.choice = choice}), "This choice is not on offer.") << choice;
  const std::string accept = CodexCard::of(command, {}).choices.front().id;
  EXPECT_EQ(answered(command, {.choice = accept, .entries = {{"x", {"y"}}}}),
            "This choice takes no answers.");
  EXPECT_EQ(answered(command, {.choice = accept}), R"({"decision":"accept"})");

  const auto tool =
      request(kElicitation, R"({"mode":"form","requestedSchema":{"type":"object","properties":{}},
      "_meta":{"codex_approval_kind":"mcp_tool_call","tool_name":"echo"}})");
  EXPECT_EQ(titles(tool), "Allow once!|Decline|Cancel|");
  EXPECT_EQ(answered(tool, {.choice = "submit"}), R"({"_meta":null,"action":"accept","content":{}})");
  const auto other = request(kElicitation, R"({"mode":"other"})");
  EXPECT_EQ(titles(other), "Decline|Cancel|");
  EXPECT_EQ(answered(other, {.choice = "submit"}), "This choice is not on offer.");

  const auto link = request(kElicitation, R"({"mode":"url","url":"https://x.org/"})");
  EXPECT_EQ(titles(link), "Decline|Cancel|");
  EXPECT_EQ(answered(link, {.choice = "done"}), "Open the link first.");
  EXPECT_EQ(titles(link, true), "I’ve completed this step|Decline|Cancel|");
  EXPECT_EQ(answered(link, {.choice = "done"}, true), R"({"_meta":null,"action":"accept","content":null})");

  const auto form = request(kElicitation, R"({"mode":"form","requestedSchema":{"type":"object","properties":{
      "on":{"type":"boolean"},"many":{"type":"array"}}}})");
  EXPECT_EQ(answered(form, {.choice = "submit", .entries = {{"on", {"true"}}, {"many", {"a", "b"}}}}),
            R"({"_meta":null,"action":"accept","content":{"many":["a","b"],"on":true}})");
  EXPECT_EQ(answered(form, {.choice = "submit", .entries = {{"many", {"[\"c\"]"}}}}),
            R"({"_meta":null,"action":"accept","content":{"many":["c"]}})");
  EXPECT_EQ(answered(form, {.choice = "submit", .entries = {{"off", {"true"}}}}),
            "\"off\" is not one of the fields.");

  const std::string ask =
      R"({"questions":[{"id":"q","question":"Which?","options":[{"label":"A"}]}],"isBlocking":)";
  const auto questions = request("item/tool/requestUserInput", ask + "true}");
  const auto skippable = request("item/tool/requestUserInput", ask + "false}");
  EXPECT_EQ(answered(questions, {.choice = "skip"}), "This choice is not on offer.");
  EXPECT_EQ(answered(skippable, {.choice = "skip"}), R"({"answers":{}})");
  EXPECT_EQ(answered(questions, {.choice = "submit"}), "Answer each question before submitting.");
  EXPECT_EQ(answered(questions, {.choice = "submit", .entries = {{"q", {"B"}}}}),
            "Choose one of the options for \"Which?\".");
  EXPECT_EQ(answered(questions, {.choice = "submit", .entries = {{"q", {"A", "A"}}}}),
            "Give one answer to \"Which?\".");
  EXPECT_EQ(answered(questions, {.choice = "submit", .entries = {{"r", {"A"}}}}),
            "\"r\" is not one of the questions.");
}

TEST(CodexCardModel, KeepsWhatWasEntered) {
  const auto asked =
      request("item/tool/requestUserInput", R"({"questions":[{"id":"q","question":"?","isOther":true,
      "options":[{"label":"A"},{"label":"B"}]},{"id":"r","question":"?"}]})");
  CodexCardModel card(asked, CodexCard::of(asked, {}));
  card.type("r", "why");
  EXPECT_EQ(answered(asked, card.submit()), "Answer each question before submitting.");
  card.type("q", "mine");
  card.choose(0, 1);
  EXPECT_EQ(card.typed("q"), "") << "the option takes its place";
  EXPECT_EQ(answered(asked, card.submit()), R"({"answers":{"q":{"answers":["B"]},"r":{"answers":["why"]}}})");
  card.type("q", " mine");
  EXPECT_FALSE(card.isChosen(0, 1));
  EXPECT_EQ(answered(asked, card.submit()),
            R"({"answers":{"q":{"answers":[" mine"]},"r":{"answers":["why"]}}})");

  const auto files = request(kFiles, R"({"itemId":"i"})");
  CodexCardModel late(files, CodexCard::of(files, {}));
  EXPECT_FALSE(late.show(CodexCard::of(files, {})));
  EXPECT_TRUE(late.show(
      CodexCard::of(files, R"({"changes":[{"path":"/f","kind":{"type":"update"},"diff":"@@ -1\n-a\n+b\n c"},
      {"path":"/g","kind":{"type":"delete"},"diff":"+x\n"}]})")));
  std::string shown;
  for (const auto& change : late.card().changes) {
    for (const DiffLine& line : diffLines(change))
      shown += std::to_string(static_cast<int>(line.kind)) + line.text + "\n";
  }
  EXPECT_EQ(shown, "3@@ -1\n2-a\n1+b\n0 c\n2-+x\n");

  // As Codex tells of a file that gets another name: its new place is told before what becomes of it.
  const auto moved = diffLines({"/f", "update", "@@ -1\n-a\n+Moved to: c\n\n\nMoved to: /b\n"});
  ASSERT_EQ(moved.size(), 4u);
  EXPECT_EQ(moved[0], (DiffLine{DiffLine::Kind::place, "Moved to: /b"}));
  EXPECT_EQ(moved[3].text, "+Moved to: c");
  EXPECT_EQ(diffLines({"/f", "update", "Moved to: /b"}).size(), 1u) << "a new name alone";
  EXPECT_EQ(diffLines({"/f", "add", "a\nMoved to: /b"})[1].text, "+Moved to: /b")
      << "what stands in the file";
}

}  // namespace
}  // namespace ostrel
