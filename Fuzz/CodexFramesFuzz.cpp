// The app server's side of the wire: the upgrade's answer and frames. Any bytes, in any pieces, give the same
// whole messages or a failure in words, within the limits.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "Codex/CodexFrames.h"
#include "Codex/CodexMessage.h"
#include "Runtime/Failure.h"
#include "Runtime/Text.h"

namespace {

using namespace ostrel;

std::vector<std::string> read(std::string_view wire, std::size_t piece) {
  codex::FrameReader reader;
  std::vector<std::string> seen;
  try {
    while (!wire.empty()) {
      const auto space = reader.space();
      if (space.empty()) std::abort();
      const std::size_t count = std::min({space.size(), wire.size(), piece});
      std::copy_n(wire.data(), count, space.data());
      wire.remove_prefix(count);
      const auto event = reader.took(count);
      if (event == codex::FrameReader::Event::ping) seen.push_back(reader.takePing());
      if (event != codex::FrameReader::Event::message) continue;
      seen.push_back(reader.takeMessage());
      if (!text::isUtf8(seen.back()) || seen.back().size() > codex::kLargestMessage) std::abort();
    }
  } catch (const Failure& failure) {
    if (failure.message().empty()) std::abort();
    seen.push_back(failure.message());
  }
  return seen;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view wire(reinterpret_cast<const char*>(data), size);
  const std::string key = "dGhlIHNhbXBsZSBub25jZQ==";
  if (codex::agrees(wire, key) && wire.find(codex::acceptKey(key)) == std::string_view::npos) std::abort();

  auto whole = read(wire, size);
  if (whole != read(wire, 1) || whole != read(wire, 7)) std::abort();
  for (std::string& message : whole) {
    const auto parsed = CodexMessage::parse(message);
    if (parsed && parsed->id && CodexMessage::wireID(*parsed->id) == "") std::abort();
  }

  // What a client writes comes back from its mask, whatever the steps.
  codex::FrameWriter writer(wire, codex::Opcode::text, {0x12, 0x34, 0x56, 0x78});
  std::string frame, step(size % 97 + 1, '\0');
  while (const std::size_t count = writer.next(step)) frame.append(step, 0, count);
  const std::string_view masked = std::string_view(frame).substr(frame.size() - size);
  for (std::size_t i = 0; i < size; ++i) {
    if ((static_cast<unsigned char>(masked[i]) ^ (0x12 + 0x22 * (i % 4))) != data[i]) std::abort();
  }
  return 0;
}
