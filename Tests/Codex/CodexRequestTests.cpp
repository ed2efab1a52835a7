#include <gtest/gtest.h>

#include "Codex/CodexCard.h"
#include "Codex/CodexForm.h"
#include "Codex/CodexRequest.h"
#include "Runtime/Failure.h"

namespace ostrel {
namespace {

const std::string kThread = "0190c0de-0000-7000-8000-000000000001";

std::optional<CodexRequest> parsed(std::string bytes) {
  const auto message = CodexMessage::parse(bytes);
  return message ? CodexRequest::parse(*message, "E") : std::nullopt;
}

CodexRequest request(const std::string& method, Json params = Json::object()) {
  params["threadId"] = kThread;
  return parsed(json::dump({{"id", 0}, {"method", method}, {"params", params}})).value();
}

const char* const kCommand = "item/commandExecution/requestApproval";
const char* const kElicitation = "mcpServer/elicitation/request";

TEST(CodexRequest, ParsesTheSevenMethodsOfAKnownThread) {
  const auto full = parsed(R"({"params":{"z":1,"a":[null],"conversationId":")" + kThread +
                           R"("},"method":"execCommandApproval","id":123456789012345678901})");
  ASSERT_TRUE(full);
  EXPECT_EQ(full->wireID, "123456789012345678901");
  EXPECT_EQ(full->threadID, kThread);
  EXPECT_EQ(full->payload, R"({"a":[null],"conversationId":")" + kThread + R"(","z":1})");
  EXPECT_EQ(full->id(), "E:MTIzNDU2Nzg5MDEyMzQ1Njc4OTAx");
  // The text 7 and the number 7 are different requests.
  EXPECT_NE(CodexRequest::key("E", "7"), CodexRequest::key("E", "\"7\""));
  const auto refused = [](const char* id, const char* method, const std::string& thread) {
    return !parsed(std::string(R"({"id":)") + id + R"(,"method":")" + method + R"(","params":)" + thread +
                   "}");
  };
  const std::string good = R"({"threadId":")" + kThread + R"("})";
  EXPECT_FALSE(refused("\"x\"", kCommand, good));
  EXPECT_TRUE(refused("null", kCommand, good));
  EXPECT_TRUE(refused("true", kCommand, good));
  EXPECT_TRUE(refused("1", "item/tool/call", good));
  EXPECT_TRUE(refused("1", kCommand, R"({"threadId":"no-uuid"})"));
  EXPECT_TRUE(refused("1", kCommand, R"({"threadId":5})"));
  EXPECT_TRUE(refused("1", kCommand, "[]"));
}

// "title|result" for each choice.
std::string choices(const CodexRequest& request) {
  std::string all;
  for (const auto& choice : request.choices()) all += choice.title + "|" + choice.result + "\n";
  return all;
}

TEST(CodexRequest, ChoicesByteForByte) {
  const std::string usual =
      "Allow once|{\"decision\":\"accept\"}\nAllow for this session|{\"decision\":\"acceptForSession\"}\n"
      "Deny|{\"decision\":\"decline\"}\nCancel action|{\"decision\":\"cancel\"}\n";
  EXPECT_EQ(choices(request(kCommand)), usual);
  EXPECT_EQ(choices(request("item/fileChange/requestApproval", {{"availableDecisions", nullptr}})), usual);
  EXPECT_EQ(choices(request(kCommand, {{"availableDecisions", Json::array()}})), "");
  const Json offered = Json::parse(R"(["cancel", "unknown", 5,
      {"acceptWithExecpolicyAmendment": {"execpolicy_amendment": ["git", "tag"]}},
      {"acceptWithExecpolicyAmendment": {"execpolicy_amendment": ["git", 1]}},
      {"applyNetworkPolicyAmendment": {"network_policy_amendment": {"host": "x.org", "action": "allow"}}},
      {"applyNetworkPolicyAmendment": {"network_policy_amendment": {"host": "x.org"}}}])");
  EXPECT_EQ(choices(request(kCommand, {{"availableDecisions", offered}})),
            "Cancel action|{\"decision\":\"cancel\"}\n"
            "Always allow: git tag|{\"decision\":{\"acceptWithExecpolicyAmendment\":"
            "{\"execpolicy_amendment\":[\"git\",\"tag\"]}}}\n"
            "Allow future access to x.org|{\"decision\":{\"applyNetworkPolicyAmendment\":"
            "{\"network_policy_amendment\":{\"action\":\"allow\",\"host\":\"x.org\"}}}}\n");
  for (const char* const old : {"execCommandApproval", "applyPatchApproval"}) {
    EXPECT_EQ(choices(request(old)),
              "Allow once|{\"decision\":\"approved\"}\nDeny|{\"decision\":\"denied\"}\n"
              "Cancel action|{\"decision\":\"abort\"}\n");
  }
  const Json asked = Json::parse(R"({"network":{"enabled":true},"fileSystem":null,"macos":{"a":1}})");
  EXPECT_EQ(choices(request("item/permissions/requestApproval", {{"permissions", asked}})),
            "Allow for this turn|{\"permissions\":{\"network\":{\"enabled\":true}},\"scope\":\"turn\"}\n"
            "Deny|{\"permissions\":{},\"scope\":\"turn\"}\n");
  EXPECT_EQ(choices(request("item/permissions/requestApproval", {{"permissions", 1}})), "");
  EXPECT_EQ(choices(request(kElicitation)),
            "Decline|{\"_meta\":null,\"action\":\"decline\",\"content\":null}\n"
            "Cancel|{\"_meta\":null,\"action\":\"cancel\",\"content\":null}\n");
  EXPECT_EQ(choices(request("item/tool/requestUserInput")), "");
  EXPECT_EQ(request(kCommand).choices()[0].id, "eyJkZWNpc2lvbiI6ImFjY2VwdCJ9");
}

TEST(CodexRequest, Titles) {
  EXPECT_EQ(request(kCommand).title(), "Allow this command?");
  EXPECT_EQ(request("execCommandApproval", {{"networkApprovalContext", {{"host", "x"}}}}).title(),
            "Allow network access?");
  EXPECT_EQ(request("applyPatchApproval").title(), "Allow these file changes?");
  EXPECT_EQ(request("item/permissions/requestApproval").title(), "Allow additional access?");
  EXPECT_EQ(request("item/tool/requestUserInput").title(), "Your answer is needed");
  EXPECT_EQ(request(kElicitation, {{"serverName", "kit"}}).title(), "kit");
  EXPECT_EQ(request(kElicitation, {{"serverName", 1}}).title(), "Connected app request");
  EXPECT_EQ((CodexRequest{"E", "1", kThread, "other", "{}"}).title(), "Codex needs a response");
}

// What one field's entry becomes, or the words that refuse it.
std::string field(const std::string& rules, const std::string& entry, bool required = false) {
  Json schema{{"properties", {{"f", Json::parse(rules)}}}};
  if (required) schema["required"] = {"f"};
  try {
    return json::dump(CodexForm::values(schema, {{"f", entry}}));
  } catch (const Failure& failure) {
    return failure.message();
  }
}

TEST(CodexForm, EveryRowOfTheTable) {
  const std::string text = R"({"type":"string","title":"Name","minLength":2,"maxLength":3})";
  EXPECT_EQ(field(text, " ab "), R"({"f":"ab"})");
  EXPECT_EQ(field(text, "e\u0301e\u0301"), "{\"f\":\"e\u0301e\u0301\"}");  // two characters
  EXPECT_EQ(field(text, "a"), "Check the length of Name.");
  EXPECT_EQ(field(text, "abcd"), "Check the length of Name.");
  EXPECT_EQ(field(text, "", true), "Complete Name.");
  EXPECT_EQ(field(R"({"type":"number"})", " \n", true), "Complete f.");
  EXPECT_EQ(field(R"({"type":"number"})", " "), "{}");
  EXPECT_EQ(field(R"({"type":"string","enum":["a","b"]})", "b"), R"({"f":"b"})");
  EXPECT_EQ(field(R"({"type":"string","enum":["a","b"]})", "c"), "Choose an option for f.");
  EXPECT_EQ(field(R"({"type":"string","oneOf":[{"const":"x","title":"X"}]})", "x"), R"({"f":"x"})");
  EXPECT_EQ(field(R"({"type":"string","oneOf":[{"const":"x","title":"X"}]})", "X"),
            "Choose an option for f.");
  EXPECT_EQ(field(R"({"type":"boolean"})", "true"), R"({"f":true})");
  EXPECT_EQ(field(R"({"type":"boolean"})", "Yes"), "Choose Yes or No for f.");
  const std::string number = "Enter a valid number for f.";
  EXPECT_EQ(field(R"({"type":"number"})", "-1.5e1"), R"({"f":-15})");
  EXPECT_EQ(field(R"({"type":"number"})", "+0.25"), R"({"f":0.25})");
  EXPECT_EQ(field(R"({"type":"integer","minimum":2,"maximum":2})", "2.0"), R"({"f":2})");
  for (const char* const bad : {"1.5", "1", "3", "NaN", "inf", "1e999", "2x", "+-2", "0x2"})
    EXPECT_EQ(field(R"({"type":"integer","minimum":2,"maximum":2})", bad), number) << bad;
  const std::string list = R"({"type":"array","minItems":1,"maxItems":2,"items":{"enum":["a","b"]}})";
  EXPECT_EQ(field(list, R"(["b", "a"])"), R"({"f":["b","a"]})");
  for (const char* const bad : {R"([1])", R"({"a":1})", "a", "[\"a\""})
    EXPECT_EQ(field(list, bad), "Enter a JSON list of choices for f.") << bad;
  for (const char* const bad : {"[]", R"(["a","b","a"])", R"(["c"])"})
    EXPECT_EQ(field(list, bad), "Choose valid options for f.") << bad;
  EXPECT_EQ(field(R"({"type":"array","items":{"anyOf":[{"const":"x"}]}})", R"(["y"])"),
            "Choose valid options for f.");
  EXPECT_EQ(field(R"({"type":"object"})", "x"), "Unsupported field type for f; nothing was submitted.");
  EXPECT_EQ(field(R"({"title":"T"})", "x"), "Unsupported field type for T; nothing was submitted.");
  EXPECT_EQ(json::dump(CodexForm::values({{"properties", Json::object()}}, {})), "{}");
  EXPECT_THROW(CodexForm::values({{"type", "object"}}, {}), Failure);
}

TEST(CodexForm, ResultsByteForByte) {
  EXPECT_EQ(CodexForm::formResult({{"properties", {{"n", {{"type", "integer"}}}}}}, {{"n", "2"}}),
            R"({"_meta":null,"action":"accept","content":{"n":2}})");
  EXPECT_EQ(CodexForm::stepDone(), R"({"_meta":null,"action":"accept","content":null})");
  const Json questions = Json::parse(R"([{"id":"q1"}, 5, {"id":"q2"}])");
  EXPECT_EQ(CodexForm::questionsResult(questions, {{"q1", " as typed "}, {"q2", "x"}}),
            R"({"answers":{"q1":{"answers":[" as typed "]},"q2":{"answers":["x"]}}})");
  EXPECT_THROW(CodexForm::questionsResult(questions, {{"q1", "x"}, {"q2", " "}}), Failure);
  EXPECT_THROW(CodexForm::questionsResult(Json::array({Json::object()}), {}), Failure);
}

TEST(CodexCard, ShowsWhatTheRequestAndItsItemTell) {
  const auto command =
      request(kCommand, {{"itemId", "i"}, {"reason", "why"}, {"additionalPermissions", {{"network", 1}}}});
  EXPECT_EQ(CodexCard::itemKey(command), kThread + ":i");
  const auto card = CodexCard::of(command, R"({"command":["ls","-l"],"cwd":"/w"})");
  EXPECT_EQ(card.command, "ls -l");
  EXPECT_EQ(card.folder, "/w");
  EXPECT_EQ(card.words, std::vector<std::string>{"why"});
  EXPECT_EQ(card.access, "{\n  \"network\": 1\n}");

  const auto files = request("item/fileChange/requestApproval", {{"grantRoot", "/r"}, {"changes", nullptr}});
  const auto diff =
      CodexCard::of(files, R"({"changes":[{"path":"/w/a","kind":{"type":"add"},"diff":"text\n"}]})");
  EXPECT_EQ(diff.changes, (std::vector<CodexCard::Change>{{"/w/a", "add", "text\n"}}));
  EXPECT_EQ(diff.writeAccess, "/r");
  EXPECT_TRUE(CodexCard::of(files, std::nullopt).changes.empty());

  const auto asked = CodexCard::of(
      request(
          "item/tool/requestUserInput",
          Json::parse(R"({"isBlocking":false,"questions":[{"id":"a","options":[{"label":"L"}],"isOther":true},
                              {"id":"b","isSecret":true}]})")),
      {});
  EXPECT_TRUE(asked.skippable);
  ASSERT_EQ(asked.questions.size(), 2u);
  EXPECT_TRUE(asked.questions[0].freeText && asked.questions[1].freeText && asked.questions[1].secret);

  const auto elicited = [](const std::string& params) {
    return CodexCard::of(request(kElicitation, Json::parse(params)), {});
  };
  const auto tool = elicited(R"({"mode":"form","requestedSchema":{"type":"object","properties":{}},
      "_meta":{"codex_approval_kind":"mcp_tool_call","tool_name":"echo","tool_params":{"text":"hi"}}})");
  EXPECT_EQ(tool.tool, (CodexCard::Tool{"echo", "{\n  \"text\": \"hi\"\n}"}));
  EXPECT_EQ(tool.step, CodexCard::Step::form);
  const auto form = elicited(R"({"mode":"openaiForm","requestedSchema":{"type":"object","required":["c"],
      "properties":{"b":{"type":"boolean"},"c":{"type":"string","oneOf":[{"const":"x","title":"X"}]}}}})");
  ASSERT_EQ(form.fields.size(), 2u);
  EXPECT_EQ(form.fields[0].kind, CodexCard::Field::Kind::boolean);
  EXPECT_EQ(form.fields[1],
            (CodexCard::Field{"c", "c", CodexCard::Field::Kind::choice, {{"x", "X", ""}}, true}));
  EXPECT_EQ(elicited(R"({"mode":"url","url":"HTTPS://x.org/a?b"})").link, "HTTPS://x.org/a?b");
  for (const char* const bad : {R"({"mode":"url","url":"file:///etc"})", R"({"mode":"url","url":"https://"})",
                                R"({"mode":"form","requestedSchema":{}})", R"({})"}) {
    const auto refused = elicited(bad);
    EXPECT_EQ(refused.step, CodexCard::Step::unsupported) << bad;
    EXPECT_EQ(refused.choices.size(), 2u);
  }
}

}  // namespace
}  // namespace ostrel
