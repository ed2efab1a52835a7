#include <algorithm>

#include <gtest/gtest.h>

#include "Codex/CodexMessage.h"
#include "CodexStandIn.h"
#include "Runtime/Failure.h"

namespace ostrel {
namespace {

using namespace std::literals;
using codex::FrameReader;
const auto& frame = CodexStandIn::bytes;

// What a reader makes of the bytes, given up to `split` first: messages, "ping:", the words of the failure.
std::vector<std::string> readAll(std::string_view wire, std::size_t split = 0, std::size_t piece = 1 << 20) {
  FrameReader reader;
  std::vector<std::string> seen;
  try {
    for (std::size_t at = 0; at < wire.size();) {
      const auto space = reader.space();
      const std::size_t count = std::min({space.size(), (at < split ? split : wire.size()) - at, piece});
      std::copy_n(wire.data() + at, count, space.data());
      at += count;
      const auto event = reader.took(count);
      if (event == FrameReader::Event::message) seen.push_back(reader.takeMessage());
      if (event == FrameReader::Event::ping) seen.push_back("ping:" + reader.takePing());
    }
  } catch (const Failure& failure) {
    seen.push_back("! " + failure.message());
  }
  return seen;
}

TEST(CodexFrames, ReadTheSameAtEverySplitPoint) {
  const std::string longer(300, 'x');
  const std::string wire = frame(0x81, "{}") + frame(0x01, "a") + frame(0x89, "now") + frame(0x00, "\xc3") +
                           frame(0x8a, "pong") + frame(0x80, "\xa9") + frame(0x81, longer) + frame(0x89, "") +
                           frame(0x81, "") + frame(0x88, "bye");
  const std::vector<std::string> expected = {
      "{}", "ping:now", "a\xc3\xa9", longer, "ping:", "", "! Codex closed the connection."};
  for (std::size_t split = 0; split < wire.size(); ++split)
    EXPECT_EQ(readAll(wire, split), expected) << split;
  EXPECT_EQ(readAll(wire, 0, 1), expected);
}

TEST(CodexFrames, RefuseInTheWrittenWords) {
  const auto refusal = [](std::string_view wire) { return readAll(wire).back(); };
  EXPECT_EQ(refusal("\x81\x80"sv), "! Invalid masked Codex server frame.");
  EXPECT_EQ(refusal("\x82\x01"sv), "! Unsupported Codex frame.");
  EXPECT_EQ(refusal("\x81\x7f\0\0\0\0\0\xf4\x24\x01"sv), "! Codex history response is too large.");
  EXPECT_EQ(refusal("\x89\x7f\xff\xff\xff\xff\xff\xff\xff\xff"sv), "! Codex history response is too large.");
  EXPECT_EQ(refusal("\x81\x01\xff"sv), "! Codex sent a message that is not UTF-8.");
  const std::string most(codex::kLargestMessage, 'm');
  EXPECT_EQ(readAll(frame(0x81, most)), std::vector{most});
  EXPECT_EQ(refusal(frame(0x01, most) + "\x80\x01"), "! Unsupported Codex frame.");
}

TEST(CodexFrames, WritesLengthsAndMaskInAnySteps) {
  for (const std::size_t size : {0u, 125u, 126u, 65'535u, 65'536u, 300'001u}) {
    const std::string payload(size, '\x5a'), plain = frame(0x8a, payload);
    std::string expected = plain.substr(0, plain.size() - size) + "\x01\x02\x04\xf8";
    expected[1] = static_cast<char>(expected[1] | 0x80);
    for (std::size_t i = 0; i < size; ++i) expected += static_cast<char>(0x5a ^ "\x01\x02\x04\xf8"[i % 4]);
    for (const std::size_t step : {3ul, 13ul, codex::FrameWriter::kStep}) {
      codex::FrameWriter writer(payload, codex::Opcode::pong, {1, 2, 4, 0xf8});
      std::string wire, buffer(step, '\0');
      while (const std::size_t count = writer.next(buffer)) wire.append(buffer, 0, count);
      EXPECT_TRUE(wire == expected) << size << " in steps of " << step;
    }
  }
}

TEST(CodexMessage, KeepsIDsAsTheyCameAndTellsWhatIsNoJson) {
  for (const char* const id : {"0", "123456789012345678901234567890", "-1.50e3", R"("é")"}) {
    std::string bytes = R"({"id": )" + std::string(id) + " }";
    EXPECT_EQ(CodexMessage::wireID(CodexMessage::parse(bytes).value().id.value()), id);
  }
  EXPECT_EQ(CodexMessage::wireID(R"("\u0041\/b")"), R"("A/b")");
  for (const auto bad : {"null"sv, "[1]"sv, "true"sv, "3\0"sv})
    EXPECT_FALSE(CodexMessage::wireID(bad)) << bad;
  for (std::string bad : {"", "x", "{", R"({"id":1}})", R"({"id":1} 2)", R"({"id")"})
    EXPECT_FALSE(CodexMessage::parse(bad)) << bad;
}

}  // namespace
}  // namespace ostrel
