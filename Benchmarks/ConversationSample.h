// Made-up conversations as Claude Code keeps them: prose, lists, code and tables, the same in every run.
#pragma once

#include <random>
#include <string>

#include <fmt/format.h>

#include "Runtime/Json.h"
#include "TranscriptSample.h"

namespace ostrel::bench {

class ConversationSample {
 public:
  // Another number, another conversation.
  explicit ConversationSample(TranscriptSample& lines, unsigned number) : lines_(lines), random_(number) {}

  // What is said last, and the lines of so many messages: every fourth the person's.
  std::string lines(int messages) {
    std::string all;
    for (int i = 0; i < messages; ++i) {
      const bool person = i % 4 == 0;
      const std::string text = json::dump(person ? paragraph(1 + below(3)) : answer(i));
      const std::string content = person ? text : R"([{"type":"text","text":)" + text + "}]";
      all += lines_.claude(
          person ? "user" : "assistant",
          fmt::format(R"("message":{{"role":"{}",{}"content":{}}})", person ? "user" : "assistant",
                      person ? "" : R"("model":"claude-opus-4-1-20250805",)", content));
    }
    return all;
  }

 private:
  std::size_t below(std::size_t limit) { return random_() % limit; }

  std::string answer(int place) {
    std::string text = paragraph(2 + below(4)) + "\n\n";
    switch (place % 4) {
      case 1:
        for (std::size_t i = 0, items = 3 + below(8); i < items; ++i)
          text += (place % 8 < 4 ? std::string("- ") : fmt::format("{}. ", i + 1)) + paragraph(1) + "\n";
        text += "\n" + paragraph(3);
        break;
      case 2:
        text += "```cpp\n";
        for (std::size_t i = 0, lines = 6 + below(30); i < lines; ++i)
          text +=
              fmt::format("  auto value{} = parse(line, {}); // {}\n", i, below(1000), words(2 + below(8)));
        text += "```\n\n" + paragraph(2);
        break;
      default:
        for (std::size_t i = 0, more = below(4); i < more; ++i) text += paragraph(2 + below(5)) + "\n\n";
        if (place % 16 != 15) break;
        text += "| Step | Before | After |\n|---|---|---|\n";
        for (int i = 0; i < 5; ++i) text += fmt::format("| {} | {} ms | {} ms |\n", words(2), below(900), i);
    }
    return text;
  }

  std::string paragraph(std::size_t sentences) {
    std::string text;
    for (std::size_t i = 0; i < sentences; ++i) {
      text += words(6 + below(14));
      static constexpr const char* kEnds[] = {". ", ": **that matters**. ", " in `Sources/Parser.cpp:88`. ",
                                              ", as `parse(line)` says. ", " ([more](docs/NOTES.md)). "};
      text += kEnds[below(std::size(kEnds))];
    }
    return text;
  }

  std::string words(std::size_t count) {
    static constexpr const char* kWords[] = {"the", "build", "fails", "because", "a",    "test", "reads",
                                             "one", "value", "and",   "returns", "more", "than", "it",
                                             "was", "given", "while", "nobody",  "looks"};
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += (i > 0 ? " " : "") + std::string(kWords[below(19)]);
    return text;
  }

  TranscriptSample& lines_;
  std::mt19937 random_;
};

}  // namespace ostrel::bench
