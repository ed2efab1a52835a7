#include "Conversations/TranscriptParser.h"

#include <iterator>

#include <fmt/format.h>

#include "Conversations/JsonLines.h"
#include "Conversations/RuntimeText.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

using simdjson::error_code;
using Value = LineParser::Value;

// The members of a line's "message" or "payload" that anything is made of.
struct Body {
  RawText type, role, model, effort, reasoningEffort, branch;
  RawText content;             // where it is a string
  std::vector<RawText> parts;  // where it is an array: the accepted texts

  void clear() {
    type = role = model = effort = reasoningEffort = branch = content = RawText();
    parts.clear();
  }
  bool hasContent() const { return content || !parts.empty(); }
};

bool isTextPart(const RawText& type) {
  return type.is("text") || type.is("input_text") || type.is("output_text");
}

// `out` becomes the text, where it stands or in `scratch`.
bool decode(const RawText& raw, std::string& scratch, std::string_view& out) {
  if (const auto plain = raw.plain()) {
    out = *plain;
    return true;
  }
  scratch.clear();
  const bool valid = raw.appendTo(scratch);
  out = scratch;
  return valid;
}

// Gives the slot the trimmed part of `text`. Large texts change places with the slot's, so that memory goes
// round among the messages; but a slot keeps no memory that is much larger than its text.
void takeText(std::string& slot, std::string& text, std::string_view trimmed) {
  const auto loose = [&](const std::string& memory) {
    constexpr std::size_t kLarge = 4096;
    return memory.capacity() > kLarge && memory.capacity() / 2 > trimmed.size();
  };
  if (trimmed.data() == text.data() && !loose(text)) {
    text.resize(trimmed.size());
    slot.swap(text);
    return;
  }
  if (loose(slot)) std::string().swap(slot);
  slot.assign(trimmed);
}

}  // namespace

// One line's findings and the scratch memory for them, reused from line to line.
struct TranscriptParser::Line {
  LineParser parser;
  RawText type, uuid, timestamp, branch;
  bool isMeta = false;
  bool isSummary = false;  // of what was said before a compaction
  Body message, payload;
  std::string branchScratch, modelScratch, effortScratch, idScratch, timeScratch, text;

  bool read(std::string_view line, std::size_t readable);
  // What the line changes in details: missing fields change nothing, and a model brings its effort along.
  struct Details {
    std::optional<std::string_view> branch, model, effort;
  };
  struct Message {
    std::string_view role, id;
    std::optional<std::string_view> timestamp;
  };
  // Nothing when one of their strings is no JSON after all; for a message, also when the line carries none.
  // Its text is in `text`.
  std::optional<Details> decodeDetails();
  std::optional<Message> decodeMessage(std::uint64_t number);
  bool decodeText(const Body& body);
  static void apply(const Details& found, AgentSessionDetails& details);
  void consume(std::string_view line, std::size_t readable, AgentTranscript::ParseState& state);
  error_code readBody(Value& value, Body& body);
  error_code readContent(Value& value, Body& body);
};

error_code TranscriptParser::Line::readContent(Value& value, Body& body) {
  body.parts.clear();
  if (auto error = LineParser::text(value, body.content); error || body.content) return error;
  return LineParser::elements(value, [&](Value element) {
    RawText partType;
    RawText partText;
    const auto error = LineParser::members(element, [&](RawText key, Value& member) -> error_code {
      if (key.initial() != 't') return simdjson::SUCCESS;
      if (key.is("type")) return LineParser::text(member, partType);
      if (key.is("text")) return LineParser::text(member, partText);
      return simdjson::SUCCESS;
    });
    if (!error && partText && !partText.empty() && isTextPart(partType)) body.parts.push_back(partText);
    return error;
  });
}

error_code TranscriptParser::Line::readBody(Value& value, Body& body) {
  body.clear();
  return LineParser::members(value, [&](RawText key, Value& member) -> error_code {
    switch (key.initial()) {
      case 'c':
        if (key.is("content")) return readContent(member, body);
        break;
      case 'e':
        if (key.is("effort")) return LineParser::text(member, body.effort);
        break;
      case 'g':
        if (key.is("git")) {
          body.branch = RawText();
          return LineParser::members(member, [&](RawText gitKey, Value& gitMember) -> error_code {
            return gitKey.is("branch") ? LineParser::text(gitMember, body.branch) : simdjson::SUCCESS;
          });
        }
        break;
      case 'm':
        if (key.is("model")) return LineParser::text(member, body.model);
        break;
      case 'r':
        if (key.is("role")) return LineParser::text(member, body.role);
        if (key.is("reasoning_effort")) return LineParser::text(member, body.reasoningEffort);
        break;
      case 't':
        if (key.is("type")) return LineParser::text(member, body.type);
        break;
      default:
        break;
    }
    return simdjson::SUCCESS;
  });
}

bool TranscriptParser::Line::read(std::string_view line, std::size_t readable) {
  type = uuid = timestamp = branch = RawText();
  isMeta = isSummary = false;
  message.clear();
  payload.clear();
  return parser.object(line, readable, [&](RawText key, Value& member) -> error_code {
    switch (key.initial()) {
      case 'g':
        if (key.is("gitBranch")) return LineParser::text(member, branch);
        break;
      case 'i':
        if (key.is("isMeta")) return LineParser::isTrue(member, isMeta);
        if (key.is("isCompactSummary")) return LineParser::isTrue(member, isSummary);
        break;
      case 'm':
        if (key.is("message")) return readBody(member, message);
        break;
      case 'p':
        if (key.is("payload")) return readBody(member, payload);
        break;
      case 't':
        if (key.is("type")) return LineParser::text(member, type);
        if (key.is("timestamp")) return LineParser::text(member, timestamp);
        break;
      case 'u':
        if (key.is("uuid")) return LineParser::text(member, uuid);
        break;
      default:
        break;
    }
    return simdjson::SUCCESS;
  });
}

std::optional<TranscriptParser::Line::Details> TranscriptParser::Line::decodeDetails() {
  Details found;
  if (branch && !branch.empty() && !decode(branch, branchScratch, found.branch.emplace()))
    return std::nullopt;
  if (payload.branch && type.is("session_meta") &&
      !decode(payload.branch, branchScratch, found.branch.emplace()))
    return std::nullopt;
  const Body& source = type.is("turn_context") ? payload : message;
  if (!source.model || source.model.empty()) return found;
  std::string_view model;
  if (!decode(source.model, modelScratch, model)) return std::nullopt;
  if (model.starts_with('<')) return found;
  found.model = model;
  const RawText& effort = source.effort ? source.effort : source.reasoningEffort;
  if (effort && !decode(effort, effortScratch, found.effort.emplace())) return std::nullopt;
  return found;
}

void TranscriptParser::Line::apply(const Details& found, AgentSessionDetails& details) {
  const auto set = [](std::optional<std::string>& field, const std::optional<std::string_view>& value) {
    if (field != value) field = value;
  };
  if (found.branch) set(details.branch, found.branch);
  if (!found.model) return;
  set(details.model, found.model);
  set(details.effort, found.effort);
}

bool TranscriptParser::Line::decodeText(const Body& body) {
  text.clear();
  if (body.content) return body.content.appendTo(text);
  for (const RawText& part : body.parts) {
    if (!text.empty()) text += "\n\n";
    if (!part.appendTo(text)) return false;
  }
  return true;
}

std::optional<TranscriptParser::Line::Message> TranscriptParser::Line::decodeMessage(std::uint64_t number) {
  const bool codex = type.is("response_item");
  const Body& body = codex ? payload : message;
  if (isMeta || !body.hasContent() || (codex && !body.type.is("message"))) return std::nullopt;
  const RawText& role = body.role ? body.role : type;
  const bool user = role.is("user");
  if ((!user && !role.is("assistant")) || !decodeText(body)) return std::nullopt;
  Message found{user ? "user" : "assistant", {}, {}};
  if (timestamp && !decode(timestamp, timeScratch, found.timestamp.emplace())) return std::nullopt;
  if (uuid && !decode(uuid, idScratch, found.id)) return std::nullopt;
  if (!uuid) {
    idScratch.clear();
    fmt::format_to(std::back_inserter(idScratch), "line-{}", number);
    found.id = idScratch;
  }
  return found;
}

void TranscriptParser::Line::consume(std::string_view line, std::size_t readable,
                                     AgentTranscript::ParseState& state) {
  if (!read(line, readable)) return;
  const auto details = decodeDetails();
  if (!details) return;
  apply(*details, state.details);
  auto found = decodeMessage(state.lines);
  if (!found) return;
  runtimeText::dropEscapes(text);
  std::string_view trimmed = text::trim(text);
  if (trimmed.empty() || !state.seen.insert(found->id)) return;
  if (found->role == "user") {
    if (isSummary || runtimeText::isNotice(trimmed)) {
      found->role = "activity";
    } else if (auto typed = runtimeText::typed(trimmed)) {
      text = *std::move(typed);
      trimmed = text;
    }
  }
  takeText(state.messages.append(found->id, found->role, found->timestamp), text, trimmed);
}

TranscriptParser::TranscriptParser() : line_(std::make_unique<Line>()) {}
TranscriptParser::~TranscriptParser() = default;

namespace {

template <class Take>
void eachLine(std::string_view data, std::size_t readable, Take take) {
  const char* const limit = data.data() + readable;
  for (;;) {
    const auto end = data.find('\n');
    take(data.substr(0, end), static_cast<std::size_t>(limit - data.data()));
    if (end == std::string_view::npos) return;
    data.remove_prefix(end + 1);
  }
}

}  // namespace

void TranscriptParser::consume(std::string_view data, std::size_t readable,
                               AgentTranscript::ParseState& state) {
  eachLine(data, readable, [&](std::string_view line, std::size_t rest) {
    ++state.lines;
    line_->consume(line, rest, state);
  });
}

void TranscriptParser::details(std::string_view data, std::size_t readable, AgentSessionDetails& details) {
  eachLine(data, readable, [&](std::string_view line, std::size_t rest) {
    if (!line_->read(line, rest)) return;
    if (const auto found = line_->decodeDetails()) line_->apply(*found, details);
  });
}

void TranscriptParser::trimMemory() {
  constexpr std::size_t kKept = 64 * 1024;
  line_->parser.trimMemory();
  if (line_->text.capacity() > kKept) std::string().swap(line_->text);
}

void AgentTranscript::consume(std::string_view data, ParseState& state) {
  TranscriptParser().consume(data, data.size(), state);
}

AgentSessionDetails AgentTranscript::details(std::string_view data) {
  AgentSessionDetails result;
  TranscriptParser().details(data, data.size(), result);
  return result;
}

void AgentTranscript::applyDetails(std::string_view line, AgentSessionDetails& details) {
  TranscriptParser().details(line, line.size(), details);
}

bool AgentTranscript::isRuntimeNotification(std::string_view text, std::string_view role) {
  return role == "user" && runtimeText::isNotice(text::trim(text));
}

}  // namespace ostrel
