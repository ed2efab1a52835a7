#include "Conversations/RuntimeText.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "Runtime/Text.h"

namespace ostrel::runtimeText {

namespace {

using namespace std::literals;

// Tags in which a whole notice stands. Of Claude Code, then of Codex.
constexpr std::array kWrappers = {
    "task-notification"sv,    "system-reminder"sv,      "local-command-stdout"sv,
    "local-command-stderr"sv, "local-command-caveat"sv, "environment_context"sv,
    "user_instructions"sv,    "turn_aborted"sv,         "subagent_notification"sv};
constexpr std::string_view kInterrupted = "[Request interrupted by user";
constexpr std::string_view kInstructions = "# AGENTS.md instructions for ";

constexpr char kEscape = '\x1B';
constexpr char kBell = '\x07';

// Takes "<tag>inside</tag>" off the front of `text`; nothing where it does not begin so.
std::optional<std::string_view> takeElement(std::string_view& text, std::string_view tag) {
  std::string_view rest = text;
  const auto skip = [&rest](std::string_view word) {
    const bool there = rest.starts_with(word);
    if (there) rest.remove_prefix(word.size());
    return there;
  };
  if (!skip("<") || !skip(tag) || !skip(">")) return std::nullopt;
  const std::string end = "</" + std::string(tag) + ">";
  const auto close = rest.find(end);
  if (close == std::string_view::npos) return std::nullopt;
  const std::string_view inside = rest.substr(0, close);
  text = rest.substr(close + end.size());
  return inside;
}

// Its beginning and its end decide: the tag may stand in the text that it holds.
bool isWrapped(std::string_view text, std::string_view tag) {
  return text.size() >= 2 * tag.size() + 5 && text.starts_with('<') && text.substr(1).starts_with(tag) &&
         text.substr(1 + tag.size()).starts_with('>') && text.ends_with('>') &&
         text.substr(0, text.size() - 1).ends_with(tag) &&
         text.substr(0, text.size() - 1 - tag.size()).ends_with("</");
}

bool isShellOutput(std::string_view text) {
  const bool output = takeElement(text, "bash-stdout").has_value();
  text = text::trim(text);
  const bool errors = takeElement(text, "bash-stderr").has_value();
  return (output || errors) && text::trim(text).empty();
}

std::optional<std::string> command(std::string_view text) {
  std::optional<std::string_view> name, words;
  while (!text.empty()) {
    if (const auto found = takeElement(text, "command-name")) {
      name = found;
    } else if (const auto arguments = takeElement(text, "command-args")) {
      words = arguments;
    } else if (!takeElement(text, "command-message")) {
      return std::nullopt;
    }
    text = text::trim(text);
  }
  if (!name || text::trim(*name).empty()) return std::nullopt;
  std::string typed(text::trim(*name));
  if (words && !text::trim(*words).empty()) typed.append(" ").append(text::trim(*words));
  return typed;
}

// Where the escape sequence that begins at `at` ends. One that is broken off counts only as far as it is
// sure.
std::size_t endOfEscape(std::string_view text, std::size_t at) {
  const auto skip = [&text](std::size_t from, char first, char last) {
    while (from < text.size() && text[from] >= first && text[from] <= last) ++from;
    return from;
  };
  if (at + 1 >= text.size()) return text.size();
  const char kind = text[at + 1];
  if (kind == '[') {
    const std::size_t last = skip(skip(at + 2, '0', '?'), ' ', '/');
    return last < text.size() && text[last] >= '@' && text[last] <= '~' ? last + 1 : last;
  }
  if (kind == ']' || kind == 'P' || kind == '_' || kind == '^' || kind == 'X') {
    const auto end = text.find_first_of("\x07\x1B\n", at + 2);
    if (end == std::string_view::npos || text[end] == '\n') return at + 2;
    if (text[end] == kBell) return end + 1;
    return text.substr(end + 1).starts_with('\\') ? end + 2 : at + 2;
  }
  const std::size_t last = skip(at + 1, ' ', '/');
  return last < text.size() && text[last] >= '0' && text[last] <= '~' ? last + 1 : last;
}

}  // namespace

bool isNotice(std::string_view text) {
  if (text.starts_with(kInterrupted)) return text.ends_with(']') && !text.contains('\n');
  if (text.starts_with(kInstructions)) return text.ends_with("</INSTRUCTIONS>");
  if (!text.starts_with('<')) return false;
  return std::ranges::any_of(kWrappers, [text](std::string_view tag) { return isWrapped(text, tag); }) ||
         isShellOutput(text);
}

std::optional<std::string> typed(std::string_view text) {
  if (text.starts_with("<command-")) return command(text);
  const auto input = takeElement(text, "bash-input");
  if (!input || !text.empty()) return std::nullopt;
  return "!" + std::string(text::trim(*input));
}

void dropEscapes(std::string& text) {
  std::size_t at = text.find(kEscape);
  if (at == std::string::npos) return;
  std::string kept = text.substr(0, at);
  while (at < text.size()) {
    at = endOfEscape(text, at);
    const std::size_t next = std::min(text.find(kEscape, at), text.size());
    kept.append(text, at, next - at);
    at = next;
  }
  text = std::move(kept);
}

}  // namespace ostrel::runtimeText
