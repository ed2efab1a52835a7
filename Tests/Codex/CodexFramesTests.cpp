#include <random>

#include <gtest/gtest.h>

#include "Codex/CodexFrames.h"
#include "Codex/CodexMessage.h"
#include "CodexStandIn.h"
#include "Runtime/Failure.h"

namespace ostrel {
namespace {

using namespace std::literals;
using codex::FrameReader;
using codex::FrameWriter;
using Peer = CodexStandIn::Peer;

// What a reader makes of the bytes, given in pieces of the sizes that `next` tells: messages, "ping:", and
// the words of the failure.
template <class Next>
std::vector<std::string> readAll(std::string_view wire, Next next) {
  FrameReader reader;
  std::vector<std::string> seen;
  try {
    while (!wire.empty()) {
      const auto space = reader.space();
      const std::size_t count = std::min({space.size(), wire.size(), std::max<std::size_t>(next(), 1)});
      std::copy_n(wire.data(), count, space.data());
      wire.remove_prefix(count);
      const auto event = reader.took(count);
      if (event == FrameReader::Event::message) seen.push_back(reader.takeMessage());
      if (event == FrameReader::Event::ping) seen.push_back("ping:" + reader.takePing());
    }
  } catch (const Failure& failure) {
    seen.push_back("! " + failure.message());
  }
  return seen;
}

std::vector<std::string> readWhole(std::string_view wire) {
  return readAll(wire, [] { return std::size_t{1} << 20; });
}

TEST(CodexFrames, ReadTheSameAtEverySplitPoint) {
  const std::string longer(300, 'x');
  const std::string longest(70'000, 'y');
  const std::string wire = Peer::bytes(0x81, "{}") + Peer::bytes(0x01, "a") + Peer::bytes(0x89, "now") +
                           Peer::bytes(0x00, "\xc3") + Peer::bytes(0x8a, "pong") + Peer::bytes(0x80, "\xa9") +
                           Peer::bytes(0x81, longer) + Peer::bytes(0x89, "") + Peer::bytes(0x81, "") +
                           Peer::bytes(0x88, "bye");
  const std::vector<std::string> expected = {
      "{}", "ping:now", "a\xc3\xa9", longer, "ping:", "", "! Codex closed the connection."};
  for (std::size_t split = 0; split < wire.size(); ++split) {
    std::size_t given = 0;
    EXPECT_EQ(readAll(wire,
                      [&] {
                        const std::size_t count = given < split ? split - given : wire.size();
                        given += count;
                        return count;
                      }),
              expected)
        << split;
  }
  EXPECT_EQ(readAll(wire, [] { return 1; }), expected);
  EXPECT_EQ(readWhole(Peer::bytes(0x81, longest)), std::vector{longest});
}

TEST(CodexFrames, RefuseInTheWrittenWordsBeforeTakingMemory) {
  const auto refusal = [](std::string_view wire) { return readWhole(wire).back(); };
  EXPECT_EQ(refusal("\x81\x80"sv), "! Invalid masked Codex server frame.");
  EXPECT_EQ(refusal("\x82\x01"sv), "! Unsupported Codex frame.");
  EXPECT_EQ(refusal("\x81\x7f\0\0\0\0\0\xf4\x24\x01"sv), "! Codex history response is too large.");
  EXPECT_EQ(refusal("\x89\x7f\xff\xff\xff\xff\xff\xff\xff\xff"sv), "! Codex history response is too large.");
  EXPECT_EQ(refusal("\x81\x01\xff"sv), "! Codex sent a message that is not UTF-8.");
  // The limit holds for the whole message too, with the other words.
  const std::string most(codex::kLargestMessage, 'm');
  EXPECT_EQ(readWhole(Peer::bytes(0x81, most)), std::vector{most});
  EXPECT_EQ(refusal(Peer::bytes(0x01, most) + "\x80\x01"), "! Unsupported Codex frame.");
}

TEST(CodexFrames, WritesTheLengthsAndMasksInAnySteps) {
  std::mt19937 random(7);
  for (const std::size_t size : {0u, 1u, 125u, 126u, 65'535u, 65'536u, 300'001u}) {
    std::string payload(size, '\0');
    for (char& byte : payload) byte = static_cast<char>(random());
    const FrameWriter::Mask mask{1, 2, 4, 0xf8};
    std::string expected = Peer::bytes(0x8a, payload).substr(0, size <= 125 ? 2 : size <= 0xffff ? 4 : 10);
    expected[1] = static_cast<char>(expected[1] | 0x80);
    expected += "\x01\x02\x04\xf8";
    for (std::size_t i = 0; i < size; ++i) expected += static_cast<char>(payload[i] ^ mask[i % 4]);
    for (const std::size_t step : {3ul, 13ul, 1000ul, FrameWriter::kStep}) {
      FrameWriter writer(payload, codex::Opcode::pong, mask);
      std::string wire, buffer(step, '\0');
      while (const std::size_t count = writer.next(buffer)) wire.append(buffer, 0, count);
      EXPECT_TRUE(wire == expected) << size << " in steps of " << step;
    }
  }
}

TEST(CodexFrames, ProvesTheUpgradeAsTheStandardSays) {
  // The example of RFC 6455.
  EXPECT_EQ(codex::acceptKey("dGhlIHNhbXBsZSBub25jZQ=="), "s3pPLMBiTxaQ9kYGzzhZRbK+xOo=");
  EXPECT_TRUE(
      codex::agrees("HTTP/1.1 101 X\r\nY: s3pPLMBiTxaQ9kYGzzhZRbK+xOo=\r\n\r\n", "dGhlIHNhbXBsZSBub25jZQ=="));
  EXPECT_FALSE(codex::agrees("HTTP/1.1 200 s3pPLMBiTxaQ9kYGzzhZRbK+xOo=", "dGhlIHNhbXBsZSBub25jZQ=="));
}

TEST(CodexMessage, KeepsIDsAsTheyCameAndTellsWhatIsNoJson) {
  const auto id = [](std::string bytes) {
    const auto message = CodexMessage::parse(bytes);
    return message && message->id ? CodexMessage::wireID(*message->id).value_or("(none)") : "(no id)";
  };
  EXPECT_EQ(id(R"({"id": 0 ,"method":"m"})"), "0");
  EXPECT_EQ(id(R"({"id":123456789012345678901234567890})"), "123456789012345678901234567890");
  EXPECT_EQ(id(R"({"id":-1.50e3})"), "-1.50e3");
  EXPECT_EQ(id(R"({"id":"7"})"), R"("7")");
  EXPECT_EQ(id(R"({"id":"\u0041\/b"})"), R"("A/b")");
  EXPECT_EQ(id(R"({"id":null})"), "(none)");
  EXPECT_EQ(id(R"({"id":[1]})"), "(none)");
  for (std::string bad : {"", "x", "{", R"({"id":1}})", R"({"id":1} 2)", R"({"id")"})
    EXPECT_FALSE(CodexMessage::parse(bad)) << bad;
  std::string list = "[1]";
  EXPECT_TRUE(CodexMessage::parse(list));
}

}  // namespace
}  // namespace ostrel
