// Made-up transcripts with the shapes of real ones, the same bytes in every run, as files in a folder of
// their own.
#pragma once

#include <filesystem>
#include <fstream>
#include <random>
#include <stdlib.h>
#include <string>
#include <string_view>

#include <fmt/format.h>

namespace ostrel::bench {

class TranscriptSample {
 public:
  static constexpr std::string_view kSession = "5f0c3a52-7a0e-4b7e-9c58-2f6f7f3f9a10";

  TranscriptSample() {
    std::string name = (std::filesystem::temp_directory_path() / "ostrel-bench-XXXXXX").string();
    if (::mkdtemp(name.data())) folder_ = name;
  }
  TranscriptSample(const TranscriptSample&) = delete;
  TranscriptSample& operator=(const TranscriptSample&) = delete;
  ~TranscriptSample() {
    std::error_code error;
    std::filesystem::remove_all(folder_, error);
  }

  const std::filesystem::path& folder() const { return folder_; }

  std::string file(const std::string& name, std::string_view bytes) const {
    const auto path = folder_ / name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path.string();
  }

  // One round of work: a prompt or not, an answer, a tool call, its result, and what stands around them.
  std::string claudeRound(bool prompts = true) {
    std::string lines;
    if (prompts && number(6) == 0)
      lines += claude(
          "user",
          fmt::format(
              R"("promptId":"{}","message":{{"role":"user","content":"{}"}},"origin":{{"kind":"human"}},"promptSource":"typed")",
              uuid(), text(40, 900)));
    lines += claude("assistant", assistant(fmt::format(R"({{"type":"text","text":"{}"}})", text(80, 2500))));
    lines += claude(
        "assistant",
        assistant(fmt::format(
            R"({{"type":"tool_use","id":"toolu_01{}","name":"Bash","input":{{"command":"{}","description":"{}"}}}})",
            number(1'000'000'000), text(30, 1500), text(20, 80))));
    const std::string output = text(500, 9000);
    if (prompts)
      lines += claude(
          "user",
          fmt::format(
              R"("message":{{"role":"user","content":[{{"tool_use_id":"toolu_01{}","type":"tool_result","content":"{}","is_error":false}}]}},"toolUseResult":{{"stdout":"{}","stderr":"","interrupted":false,"isImage":false}},"sourceToolAssistantUUID":"{}")",
              number(1'000'000'000), output, output, uuid()));
    if (number(3) == 0)
      lines += claude(
          "attachment",
          fmt::format(
              R"("attachment":{{"type":"task_reminder","content":[{{"id":"1","subject":"{}","status":"pending","blocks":[],"blockedBy":[]}}],"itemCount":1}})",
              text(500, 4000)));
    if (number(8) == 0)
      lines += claude("system", R"("subtype":"turn_duration","durationMs":45231,"isMeta":false)");
    return lines;
  }

  std::string codexRound() {
    std::string lines;
    if (number(6) == 0) {
      lines += codex(
          "turn_context",
          R"("turn_id":"1","cwd":"/work/project","approval_policy":"on-request","sandbox_policy":{"type":"workspace-write","network_access":false},"model":"gpt-5.2-codex","effort":"high","summary":"auto")");
      lines += codex(
          "response_item",
          fmt::format(R"("type":"message","role":"user","content":[{{"type":"input_text","text":"{}"}}])",
                      text(40, 900)));
    }
    lines += codex(
        "response_item",
        fmt::format(
            R"("type":"reasoning","summary":[{{"type":"summary_text","text":"{}"}}],"content":null,"encrypted_content":"{}")",
            text(50, 300), letters(400, 3000)));
    lines += codex(
        "response_item",
        fmt::format(R"("type":"message","role":"assistant","content":[{{"type":"output_text","text":"{}"}}])",
                    text(80, 2500)));
    lines += codex(
        "response_item",
        fmt::format(
            R"("type":"function_call","name":"exec_command","arguments":"{{\"cmd\":\"{}\"}}","call_id":"call_{}")",
            letters(30, 900), number(1'000'000'000)));
    const std::string output = text(500, 12000);
    lines += codex(
        "event_msg",
        fmt::format(
            R"("type":"item_completed","turn_id":"1","item":{{"type":"CommandExecution","id":"call_1","command":["bash","-lc","{}"],"cwd":"file:///work/project","exit_code":0,"status":"completed"}})",
            letters(30, 900)));
    lines += codex("response_item",
                   fmt::format(R"("type":"function_call_output","call_id":"call_{}","output":"{}")",
                               number(1'000'000'000), output));
    lines += codex(
        "event_msg",
        R"("type":"token_count","info":{"total_token_usage":{"input_tokens":48123,"cached_input_tokens":40320,"output_tokens":1822,"reasoning_output_tokens":960,"total_tokens":49945},"last_token_usage":{"input_tokens":12011,"cached_input_tokens":11000,"output_tokens":421,"reasoning_output_tokens":200,"total_tokens":12432},"model_context_window":272000},"rate_limits":{"primary":{"used_percent":12.0,"window_minutes":300,"resets_in_seconds":9000},"secondary":null})");
    return lines;
  }

  // Whole rounds, and blanks in a last line, to exactly `bytes`.
  template <class Round>
  static std::string filled(std::string lines, std::size_t bytes, Round round) {
    for (;;) {
      const std::string more = round();
      if (lines.size() + more.size() + 3 > bytes) break;
      lines += more;
    }
    return lines += "{}" + std::string(bytes - lines.size() - 3, ' ') + "\n";
  }

  std::string claude(std::string_view type, std::string_view members) {
    return fmt::format(
        R"({{"parentUuid":"{}","isSidechain":false,"type":"{}",{},"uuid":"{}","timestamp":"2026-11-22T21:{:02}:{:02}.{:03}Z","userType":"external","entrypoint":"cli","cwd":"/work/project","sessionId":"{}","version":"2.1.197","gitBranch":"main"}})"
        "\n",
        uuid(), type, members, uuid(), number(60), number(60), number(1000), kSession);
  }

  // Prose and code, with an escape in about 45 bytes and something beyond ASCII in about 400.
  std::string text(std::size_t least, std::size_t most) {
    static constexpr std::string_view kWords[] = {
        "the ",         "build ",  "item ",  "fails ", "because ", "is ",          "a ",
        "test ",        "in ",     "value ", "reads ", "const ",   "auto ",        "Sources/Ostrel/Agents ",
        "std::size_t ", "0x7f3a ", "and ",   "then ",  "returns ", "parse(line) ", "of ",
        "an ",          "error: ", "while ", "not ",   "more ",    "than ",        "it "};
    static constexpr std::string_view kEscaped[] = {"\\n", "\\n", ";\\n", "\\\"quoted\\\" ", "\\t", "\\n\\n"};
    static constexpr std::string_view kOther[] = {"müde ", "→ ", "“so” ", "😀 "};
    std::string result;
    for (const std::size_t length = least + number(most - least); result.size() < length;) {
      const std::size_t which = number(64);
      if (which == 0) {
        result += kOther[number(std::size(kOther))];
      } else {
        result += which < 8 ? kEscaped[number(std::size(kEscaped))] : kWords[number(std::size(kWords))];
      }
    }
    return result;
  }

 private:
  std::size_t number(std::size_t below) { return random_() % below; }
  std::string letters(std::size_t least, std::size_t most) {
    std::string result(least + number(most - least), 'a');
    for (char& c : result) c = static_cast<char>('a' + number(26));
    return result;
  }
  std::string uuid() {
    return fmt::format("{:08x}-{:04x}-4{:03x}-a{:03x}-{:06x}{:06x}", number(1u << 31), number(1 << 16),
                       number(1 << 12), number(1 << 12), number(1 << 24), number(1 << 24));
  }
  std::string assistant(const std::string& content) {
    return fmt::format(
        R"("message":{{"model":"claude-opus-4-1-20250805","id":"msg_{}","type":"message","role":"assistant","content":[{}],"stop_reason":null,"stop_sequence":null,"usage":{{"input_tokens":4,"cache_creation_input_tokens":1193,"cache_read_input_tokens":25642,"cache_creation":{{"ephemeral_5m_input_tokens":1193,"ephemeral_1h_input_tokens":0}},"output_tokens":231,"service_tier":"standard"}}}},"requestId":"req_{}")",
        number(1'000'000'000), content, number(1'000'000'000));
  }
  std::string codex(std::string_view type, std::string_view payload) {
    return fmt::format(
        R"({{"timestamp":"2026-11-22T21:{:02}:{:02}.{:03}Z","ordinal":{},"type":"{}","payload":{{{}}}}})"
        "\n",
        number(60), number(60), number(1000), ordinal_++, type, payload);
  }

  std::filesystem::path folder_;
  std::mt19937 random_{20261122};
  int ordinal_ = 0;
};

}  // namespace ostrel::bench
