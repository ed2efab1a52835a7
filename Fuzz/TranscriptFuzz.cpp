// Transcript lines: pieces of any size give what the whole gives, and a line that is strict JSON gives what a
// plain reading of its tree gives.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <nlohmann/json.hpp>

#include "Conversations/LineBuffer.h"
#include "Conversations/RuntimeText.h"
#include "Conversations/TranscriptParser.h"
#include "Require.h"
#include "Runtime/Text.h"

namespace {

using namespace ostrel;
using Json = nlohmann::json;
using State = AgentTranscript::ParseState;

std::optional<std::string> textOf(const Json& object, const char* key) {
  if (!object.is_object() || !object.contains(key) || !object[key].is_string()) return std::nullopt;
  return object[key].get<std::string>();
}

const Json& memberOf(const Json& object, const char* key) {
  static const Json none = Json::object();
  return object.is_object() && object.contains(key) && object[key].is_object() ? object[key] : none;
}

AgentTranscriptSnapshot expected(const Json& line) {
  AgentTranscriptSnapshot result;
  const auto type = textOf(line, "type");
  const Json& payload = memberOf(line, "payload");
  if (const auto branch = textOf(line, "gitBranch"); branch && !branch->empty())
    result.details.branch = branch;
  if (type == "session_meta")
    if (const auto branch = textOf(memberOf(payload, "git"), "branch")) result.details.branch = branch;
  const Json& source = type == "turn_context" ? payload : memberOf(line, "message");
  if (const auto model = textOf(source, "model"); model && !model->empty() && !model->starts_with('<')) {
    result.details.model = model;
    result.details.effort = textOf(source, "effort");
    if (!result.details.effort) result.details.effort = textOf(source, "reasoning_effort");
  }

  if (line.contains("isMeta") && line["isMeta"] == true) return result;
  const bool codex = type == "response_item";
  const Json& message = codex ? payload : memberOf(line, "message");
  if (codex && textOf(message, "type") != "message") return result;
  auto role = textOf(message, "role");
  if (!role) role = type;
  if (role != "user" && role != "assistant") return result;
  std::string joined;
  if (const auto whole = textOf(message, "content")) {
    joined = *whole;
  } else if (message.contains("content") && message["content"].is_array()) {
    for (const Json& part : message["content"]) {
      const auto partType = textOf(part, "type");
      const auto partText = textOf(part, "text");
      if (!partText || partText->empty() ||
          (partType != "text" && partType != "input_text" && partType != "output_text"))
        continue;
      if (!joined.empty()) joined += "\n\n";
      joined += *partText;
    }
  }
  runtimeText::dropEscapes(joined);
  std::string trimmed(text::trim(joined));
  if (trimmed.empty()) return result;
  if (role == "user") {
    const bool summary = line.contains("isCompactSummary") && line["isCompactSummary"] == true;
    if (summary || runtimeText::isNotice(trimmed)) {
      role = "activity";
    } else {
      trimmed = runtimeText::typed(trimmed).value_or(trimmed);
    }
  }
  require(!trimmed.contains('\x1B'));
  result.messages.push_back(
      {textOf(line, "uuid").value_or("line-1"), *role, trimmed, textOf(line, "timestamp")});
  return result;
}

void checkLine(std::string_view bytes) {
  // What nlohmann reads otherwise than we do: a mark of byte order, and NUL as the end.
  if (bytes.starts_with("\xEF\xBB\xBF") || bytes.find('\0') != std::string_view::npos) return;
  const Json line = Json::parse(text::repairUtf8(bytes), nullptr, false);
  if (!line.is_object()) return;
  State state;
  AgentTranscript::consume(bytes, state);
  require(state.snapshot() == expected(line));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  if (size < 2) return 0;
  const std::size_t step = 1 + bytes[0] + std::size_t{bytes[1]} * 8;
  const std::string_view data(reinterpret_cast<const char*>(bytes) + 2, size - 2);
  State whole;
  AgentTranscript::consume(data, whole);

  State pieces;
  TranscriptParser parser;
  LineBuffer buffer;
  buffer.start(1);
  for (std::string_view rest = data; !rest.empty();) {
    const auto room = buffer.room();
    const std::size_t count = std::min({step, rest.size(), room.size()});
    std::memcpy(room.data(), rest.data(), count);
    rest.remove_prefix(count);
    if (const auto lines = buffer.take(count)) parser.consume(*lines, buffer.readable(lines->data()), pieces);
  }
  parser.consume(buffer.pending(), buffer.pending().size(), pieces);
  require(pieces.snapshot() == whole.snapshot());
  require(pieces.lines == whole.lines && pieces.seen.size() == whole.seen.size());
  require(AgentTranscript::details(data) == whole.details);

  for (const auto line : text::split(data, '\n')) checkLine(line);
  return 0;
}
