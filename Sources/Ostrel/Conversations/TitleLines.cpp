#include "Conversations/TitleLines.h"

#include "Runtime/Text.h"

namespace ostrel {

namespace {

using simdjson::error_code;
using Value = LineParser::Value;

std::optional<std::string> decoded(const RawText& raw) {
  std::string result;
  if (!raw || !raw.appendTo(result)) return std::nullopt;
  return result;
}

// A title is one line of at most 300 characters.
std::optional<std::string> validTitle(const RawText& raw) {
  const auto value = decoded(raw);
  if (!value) return std::nullopt;
  const auto trimmed = text::trim(*value);
  constexpr std::size_t kLongest = 300;
  if (trimmed.empty() || text::hasControlCharacter(trimmed)) return std::nullopt;
  // No character is shorter than a byte.
  if (trimmed.size() > kLongest && text::prefixCharacters(trimmed, kLongest).size() < trimmed.size())
    return std::nullopt;
  return std::string(trimmed);
}

// A prompt's first line, shortened to what a row shows. Nothing for injected notices and slash commands.
std::optional<std::string> promptTitle(std::string_view prompt) {
  prompt = text::trim(prompt);
  if (prompt.empty() || prompt.starts_with('<') || prompt.starts_with('/')) return std::nullopt;
  const auto line = text::trim(prompt.substr(0, prompt.find('\n')));
  constexpr std::size_t kWhole = 48;
  constexpr std::size_t kShortened = 47;
  if (text::prefixCharacters(line, kWhole).size() == line.size()) return std::string(line);
  return std::string(text::trimBlanks(text::prefixCharacters(line, kShortened))).append("…");
}

}  // namespace

std::optional<TitleLines::Title> TitleLines::title(std::string_view line, std::size_t readable,
                                                   bool customOnly) {
  RawText type, session, custom, automatic;
  const bool whole = parser_.object(line, readable, [&](RawText key, Value& member) -> error_code {
    if (key.is("type")) return LineParser::text(member, type);
    if (key.is("sessionId")) return LineParser::text(member, session);
    if (key.is("customTitle")) return LineParser::text(member, custom);
    if (key.is("aiTitle")) return LineParser::text(member, automatic);
    return simdjson::SUCCESS;
  });
  if (!whole) return std::nullopt;
  const bool own = type.is("custom-title");
  if (!own && (customOnly || !type.is("ai-title"))) return std::nullopt;
  if (!session.equals(sessionID_)) return std::nullopt;
  auto text = validTitle(own ? custom : automatic);
  if (!text) return std::nullopt;
  return Title{own, std::move(*text)};
}

std::optional<std::string> TitleLines::prompt(std::string_view line, std::size_t readable) {
  RawText session, content;
  bool isMeta = false;
  bool isSummary = false;
  const auto firstText = [&](Value& array) {
    bool found = false;
    return LineParser::elements(array, [&](Value& element) -> error_code {
      RawText type, text;
      const auto error = LineParser::members(element, [&](RawText key, Value& member) -> error_code {
        if (key.is("type")) return LineParser::text(member, type);
        if (key.is("text")) return LineParser::text(member, text);
        return simdjson::SUCCESS;
      });
      if (!found && type.is("text")) {
        found = true;
        content = text;
      }
      return error;
    });
  };
  const bool whole = parser_.object(line, readable, [&](RawText key, Value& member) -> error_code {
    if (key.is("sessionId")) return LineParser::text(member, session);
    if (key.is("isMeta")) return LineParser::isTrue(member, isMeta);
    if (key.is("isCompactSummary")) return LineParser::isTrue(member, isSummary);
    if (!key.is("message")) return simdjson::SUCCESS;
    content = RawText();
    return LineParser::members(member, [&](RawText name, Value& value) -> error_code {
      if (!name.is("content")) return simdjson::SUCCESS;
      if (auto error = LineParser::text(value, content); error || content) return error;
      return firstText(value);
    });
  });
  if (!whole || isMeta || isSummary || !session.equals(sessionID_)) return std::nullopt;
  const auto text = decoded(content);
  return text ? promptTitle(*text) : std::nullopt;
}

}  // namespace ostrel
