#include <gtest/gtest.h>

#include "Conversations/LineBuffer.h"
#include "Conversations/TranscriptParser.h"
#include "Runtime/Json.h"

namespace ostrel {
namespace {

using namespace std::literals;
using Messages = std::vector<AgentTranscriptMessage>;
using State = AgentTranscript::ParseState;

State consumed(std::string_view data) {
  State state;
  AgentTranscript::consume(data, state);
  return state;
}

Messages messagesOf(std::string_view data) { return consumed(data).snapshot().messages; }

// Lines as Claude Code 2.1 and Codex 0.169 write them, shortened in their texts.
const std::string kClaudePrompt =
    R"({"parentUuid":null,"isSidechain":false,"promptId":"p1","type":"user","message":{"role":"user","content":"Fix the build"},)"
    R"("uuid":"11111111-1111-4111-8111-111111111111","timestamp":"2026-11-22T21:00:00.000Z","origin":{"kind":"human"},)"
    R"("promptSource":"typed","permissionMode":"default","userType":"external","entrypoint":"cli","cwd":"/work/p",)"
    R"("sessionId":"s","version":"2.1.197","gitBranch":"main"})";
const std::string kClaudeAnswer =
    R"({"parentUuid":"a","isSidechain":false,"message":{"model":"claude-opus-4-1","id":"msg_1","type":"message","role":"assistant",)"
    R"("content":[{"type":"text","text":"Looking \ud83d\ude00\n"}],"stop_reason":null,"usage":{"input_tokens":3,)"
    R"("cache":{"a":[1,2,{"b":null}]}}},"requestId":"r","type":"assistant","uuid":"22222222-2222-4222-8222-222222222222",)"
    R"("timestamp":"2026-11-22T21:00:01.000Z","sessionId":"s","gitBranch":"main"})";
const std::string kClaudeToolResult =
    R"({"type":"user","message":{"role":"user","content":[{"tool_use_id":"t","type":"tool_result","content":"total 4\n","is_error":false}]},)"
    R"("uuid":"33333333-3333-4333-8333-333333333333","toolUseResult":{"stdout":"total 4","type":"text","text":"x"},"gitBranch":"feature"})";
const std::string kCodexMeta =
    R"({"timestamp":"2026-11-22T21:00:00.000Z","ordinal":0,"type":"session_meta","payload":{"id":"x","cwd":"/p","git":{"commit_hash":"c","branch":"trunk"},"base_instructions":{"text":"y"}}})";
const std::string kCodexTurn =
    R"({"timestamp":"t","ordinal":3,"type":"turn_context","payload":{"turn_id":"1","cwd":"/p","model":"gpt-5.2-codex","effort":"high","summary":"auto"}})";
const std::string kCodexMessage =
    R"({"timestamp":"2026-11-22T21:00:02.000Z","ordinal":4,"type":"response_item","payload":{"type":"message","role":"assistant","content":[{"type":"output_text","text":"Done."}]}})";

TEST(TranscriptLines, ClaudeAndCodexLinesAsTheyAreWritten) {
  const State claude = consumed(kClaudePrompt + "\n" + kClaudeAnswer + "\n" + kClaudeToolResult);
  EXPECT_EQ(
      claude.snapshot().messages,
      (Messages{
          {"11111111-1111-4111-8111-111111111111", "user", "Fix the build", "2026-11-22T21:00:00.000Z"},
          {"22222222-2222-4222-8222-222222222222", "assistant", "Looking 😀", "2026-11-22T21:00:01.000Z"}}));
  EXPECT_EQ(claude.details, (AgentSessionDetails{"feature", "claude-opus-4-1", std::nullopt}));
  EXPECT_EQ(claude.lines, 3u);

  const State codex = consumed(kCodexMeta + "\n" + kCodexTurn + "\n" + kCodexMessage);
  EXPECT_EQ(codex.snapshot().messages,
            (Messages{{"line-3", "assistant", "Done.", "2026-11-22T21:00:02.000Z"}}));
  EXPECT_EQ(codex.details, (AgentSessionDetails{"trunk", "gpt-5.2-codex", "high"}));
}

TEST(TranscriptLines, WhatMakesAMessage) {
  const Messages nothing;
  const auto one = [](std::string role, std::string text) {
    return Messages{{"line-1", role, text, std::nullopt}};
  };
  const struct {
    std::string line;
    Messages expected;
  } table[] = {
      {R"({"type":"user","message":{"content":"a"}})", one("user", "a")},
      {R"({"message":{"role":"assistant","content":"a"}})", one("assistant", "a")},
      {R"({"type":"user","message":{"role":7,"content":"a"}})", one("user", "a")},  // only a text is a role
      {R"({"type":"user","message":{"role":"system","content":"a"}})", nothing},
      {R"({"type":"user","message":{"content":{"type":"text","text":"a"}}})", nothing},
      {R"({"type":"user","isMeta":true,"message":{"content":"a"}})", nothing},
      {R"({"type":"user","isMeta":"true","message":{"content":"a"}})", one("user", "a")},
      {R"({"type":"user","message":{"content":" \u00a0\n\u2028 "}})", nothing},
      {R"({"type":"user","message":{"content":"\u3000 a\tb \r\n"}})", one("user", "a\tb")},
      {R"({"type":"user","message":{"content":[{"type":"input_text","text":"a"},{"type":"image","text":"no"},)"
       R"({"type":"output_text","text":""},7,null,{"text":"no"},{"type":"text"},{"text":"b","type":"text"}]}})",
       one("user", "a\n\nb")},
      {R"({"type":"response_item","payload":{"type":"reasoning","role":"user","content":"a"}})", nothing},
      {R"({"type":"response_item","payload":{"type":"message","content":"a"}})", nothing},
      {R"({"type":"event_msg","payload":{"type":"message","role":"user","content":"a"}})", nothing},
      {R"({"payload":{"type":"message","role":"user","content":"a"},"type":"response_item"})",
       one("user", "a")},
      // The last of repeated keys counts, whatever it holds.
      {R"({"type":"user","message":{"content":"a","content":"b"}})", one("user", "b")},
      {R"({"type":"user","message":{"content":"a","content":[]}})", nothing},
      {R"({"type":"user","message":{"content":"a"},"message":{}})", nothing},
      // Escapes in keys and short values, half surrogate pairs, every short escape.
      {R"({"t\u0079pe":"\u0075ser","message":{"conten\u0074":"\ud83dx\ude00"}})",
       one("user", "\uFFFDx\uFFFD")},
      {R"({"type":"user","message":{"content":"\"\\\/\b\f\r\t\u00e9\u20ac."}})",
       one("user", "\"\\/\b\f\r\té€.")},
      {R"({"type":"user","message":{"content":"<task-notification>\nx</task-notification> "}})",
       one("activity", "<task-notification>\nx</task-notification>")},
  };
  for (const auto& row : table) EXPECT_EQ(messagesOf(row.line), row.expected) << row.line;
}

// What the agents' programs write in the person's name, as Claude Code 2.1 and Codex 0.169 write it.
TEST(TranscriptLines, WhatThePersonDidNotTypeIsNotTheirs) {
  const auto user = [](std::string_view text, const char* more = "") {
    const auto found = messagesOf(R"({"type":"user")" + std::string(more) + R"(,"message":{"content":)" +
                                  json::dump(Json(text)) + "}}");
    return found.empty() ? "(nothing)" : found[0].role + ": " + found[0].text;
  };
  EXPECT_EQ(user("This session is being continued", R"(,"isCompactSummary":true)"),
            "activity: This session is being continued");
  EXPECT_EQ(user("Go on", R"(,"isCompactSummary":false)"), "user: Go on");
  // A command is what was typed, whatever order its parts come in.
  EXPECT_EQ(user("<command-name>/compact</command-name>\n            <command-message>compact"
                 "</command-message>\n            <command-args>only the\nplan</command-args>"),
            "user: /compact only the\nplan");
  EXPECT_EQ(user("<command-message>clear</command-message>\n<command-name>/clear</command-name>\n"
                 "<command-args></command-args>"),
            "user: /clear");
  EXPECT_EQ(user("<command-name>/model</command-name>"), "user: /model");
  EXPECT_EQ(user("<bash-input>git log</bash-input>"), "user: !git log");
  const char* const notices[] = {"<local-command-stdout>\x1b[2mCompacted \x1b[22m</local-command-stdout>",
                                 "<local-command-stderr>no</local-command-stderr>",
                                 "<local-command-caveat>Caveat: ...</local-command-caveat>",
                                 "<bash-stdout>a</bash-stdout><bash-stderr></bash-stderr>",
                                 "<task-notification>x</task-notification>",
                                 "<system-reminder>x</system-reminder>",
                                 "[Request interrupted by user]",
                                 "[Request interrupted by user for tool use]",
                                 "<environment_context>\n  <cwd>/p</cwd>\n</environment_context>",
                                 "<user_instructions>x</user_instructions>",
                                 "# AGENTS.md instructions for /p\n\n<INSTRUCTIONS>\nx\n</INSTRUCTIONS>",
                                 "<turn_aborted>\nx\n</turn_aborted>"};
  for (const char* const notice : notices) EXPECT_TRUE(user(notice).starts_with("activity: ")) << notice;
  // What a person may well have written themselves.
  const char* const words[] = {
      "<environment_context> is what?", "<b>bold</b>", "What does <command-name>/x</command-name> mean?",
      "<command-name>/x</command-name> is not a command", "# AGENTS.md instructions for me: write them"};
  for (const char* const text : words) EXPECT_EQ(user(text), std::string("user: ") + text);
  // Codex's lines have the same said of them, and what an agent says is its own.
  EXPECT_EQ(messagesOf(R"({"type":"response_item","payload":{"type":"message","role":"user","content":)"
                       R"([{"type":"input_text","text":"<environment_context>x</environment_context>"}]}})")
                .at(0)
                .role,
            "activity");
  EXPECT_EQ(
      messagesOf(R"({"message":{"role":"assistant","content":"<turn_aborted>x</turn_aborted>"}})").at(0).role,
      "assistant");
}

TEST(TranscriptLines, EscapeSequencesOfATerminalAreNoText) {
  const auto text = [](std::string_view raw, const char* role) {
    const auto found = messagesOf(R"({"message":{"role":")" + std::string(role) + R"(","content":)" +
                                  json::dump(Json(raw)) + "}}");
    return found.empty() ? "(nothing)" : found[0].text;
  };
  for (const char* const role : {"user", "assistant"}) {
    EXPECT_EQ(text("\x1b[1;31mred\x1b[0m \x1b[2K\x1b[38;2;1;2;3mx\x1b[m", role), "red x");
    EXPECT_EQ(text("a\x1b]8;;http://x/\x1b\\link\x1b]8;;\x07"
                   "b\x1bPq\x1b\\c\x1b(Bd\x1b=e",
                   role),
              "alinkbcde");
    EXPECT_EQ(text("\x1b[1m \x1b[0m\n", role), "(nothing)");
    // One that never ends takes no text with it but its own beginning.
    EXPECT_EQ(text("a\x1b]0;title\nb\x1b[12", role), "a0;title\nb");
    EXPECT_EQ(text("a\x1b", role), "a");
  }
}

TEST(TranscriptLines, BrokenLinesCountAndAreReadAround) {
  const std::string good = R"({"type":"user","message":{"content":"ok"}})";
  const std::string nul("\0", 1);
  std::vector<std::string> broken = {
      nul,
      nul + good,
      good + good,
      good + "x",
      good.substr(0, good.size() - 1),
      R"({"type":"user","gitBranch":"b)" + nul + R"(","message":{"content":"x"}})"};
  for (const char* const line :
       {"", " ", "}", "[]", "null", "nonsense", R"({"type":"user","message":{"content":"x"},})",
        R"({"type":"user","message":{"content":"x"]})", R"({"type":"user" "message":{"content":"x"}})",
        R"({"type":"user","message":{"content":"\q"}})", R"({"type":"user","message":{"content":"\u12g4"}})",
        R"({"type":"user","message":{"content":"x},"gitBranch":"b"})", R"({"gitBranch":"b","model)",
        R"({"gitBranch":"b","message":{"model":"m","content":["a"})"})
    broken.emplace_back(line);
  for (const std::string& line : broken) {
    const State state = consumed(line + "\n" + good);
    EXPECT_EQ(state.snapshot().messages, (Messages{{"line-2", "user", "ok", std::nullopt}})) << line;
    EXPECT_EQ(state.details, AgentSessionDetails{}) << line;
    EXPECT_EQ(state.lines, 2u);
  }
  EXPECT_EQ(messagesOf(" \t" + good + "\r").size(), 1u);
  EXPECT_EQ(messagesOf("{\"type\":\"user\",\"message\":{\"content\":\"a\x80z\xE2\x82\"},\"uuid\":\"\xFF\"}"),
            (Messages{{"\uFFFD", "user", "a\uFFFDz\uFFFD", std::nullopt}}));
}

TEST(TranscriptLines, OneMessageAnIdAndTheLatestHundred) {
  const auto line = [](int n, const std::string& id) {
    return R"({"type":"user","message":{"content":"m)" + std::to_string(n) + "\"}" +
           (id.empty() ? "" : ",\"uuid\":\"" + id + "\"") + "}\n";
  };
  std::string data;
  for (int i = 0; i < 250; ++i) data += line(i, "id-" + std::to_string(i));
  data += line(0, "id-0");      // long gone from the messages, yet still known
  data += line(1, "line-254");  // names the id that the line after the next would have had
  data += line(2, "");
  data += line(3, "");
  data.pop_back();
  const State state = consumed(data);
  const auto messages = state.snapshot().messages;
  ASSERT_EQ(messages.size(), 100u);
  EXPECT_EQ(messages.front().text, "m152");
  EXPECT_EQ(messages[97].id, "id-249");
  EXPECT_EQ(messages[98].id, "line-254");
  EXPECT_EQ(messages[98].text, "m1");
  EXPECT_EQ(messages[99].id, "line-253");
  EXPECT_EQ(state.seen.size(), 252u);
}

TEST(TranscriptDetails, FollowTheLatestModelLine) {
  AgentSessionDetails details;
  using D = AgentSessionDetails;
  const auto none = std::nullopt;
  const struct {
    const char* line;
    D expected;
  } table[] = {
      {R"({"message":{"model":"m1","effort":"low","reasoning_effort":"high"}})", {none, "m1", "low"}},
      {R"({"message":{"model":"m1","reasoning_effort":"high"},"gitBranch":"b"})", {"b", "m1", "high"}},
      {R"({"message":{"model":"<synthetic>"},"gitBranch":""})", {"b", "m1", "high"}},
      {R"({"message":{"model":"","effort":"x"}})", {"b", "m1", "high"}},
      {R"({"payload":{"model":"p","git":{"branch":"g"}}})", {"b", "m1", "high"}},
      {R"({"type":"session_meta","gitBranch":"x","payload":{"git":{"branch":"g"}}})", {"g", "m1", "high"}},
      {R"({"type":"turn_context","message":{"model":"no"},"payload":{"model":"m2"}})", {"g", "m2", none}},
      {R"({"isMeta":true,"message":{"model":"m3","effort":4,"reasoning_effort":"r"}})", {"g", "m3", "r"}},
      {R"({"message":{"model":"m4"},"gitBranch":"no")", {"g", "m3", "r"}},
  };
  for (const auto& [line, expected] : table) {
    AgentTranscript::applyDetails(line, details);
    EXPECT_EQ(details, expected) << line;
  }
  // A last line that is cut changes nothing, though it ends in a bracket.
  EXPECT_EQ(AgentTranscript::details(kCodexTurn + "\n" +
                                     R"({"type":"session_meta","payload":{"git":{"branch":"x"})"),
            (D{none, "gpt-5.2-codex", "high"}));
}

// A stream is cut into the same lines wherever its pieces end, and the parser takes them where they stand.
TEST(LineBuffer, EverySplitGivesTheSame) {
  const std::string data =
      kClaudePrompt + "\n\n" + kClaudeAnswer + "\nbroken\n" + kCodexMessage + "\n" + kClaudeToolResult;
  const std::string whole = data.substr(0, data.rfind('\n'));
  const auto expected = consumed(whole).snapshot();
  TranscriptParser parser;
  for (std::size_t split = 0; split <= data.size(); ++split) {
    State state;
    LineBuffer buffer;
    buffer.start(1);  // grows as the lines want it
    std::string_view rest = data;
    for (const std::size_t end : {split, data.size()}) {
      std::size_t count = end - (data.size() - rest.size());
      while (count > 0) {
        const auto room = buffer.room();
        const std::size_t piece = std::min(count, room.size());
        std::ranges::copy(rest.substr(0, piece), room.begin());
        rest.remove_prefix(piece);
        count -= piece;
        if (const auto lines = buffer.take(piece))
          parser.consume(*lines, buffer.readable(lines->data()), state);
      }
    }
    ASSERT_EQ(state.snapshot(), expected) << split;
    ASSERT_EQ(state.lines, 5u);
    ASSERT_EQ(buffer.pending(), kClaudeToolResult);
  }
}

}  // namespace
}  // namespace ostrel
