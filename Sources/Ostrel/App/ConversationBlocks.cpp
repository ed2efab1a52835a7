#include "App/ConversationBlocks.h"

#include <set>
#include <utility>

#include "Client/AgentLabels.h"
#include "Conversations/AgentReadingStyle.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

using Kind = ConversationBlock::Kind;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Where the marker of a numbered item ends ("12." or "12)"), or nothing.
std::optional<std::size_t> numberEnd(std::string_view line) {
  std::size_t end = 0;
  while (end < line.size() && isDigit(line[end])) ++end;
  const bool marker = end > 0 && end <= 9 && end + 1 < line.size() &&
                      (line[end] == '.' || line[end] == ')') && line[end + 1] == ' ';
  return marker ? std::optional(end) : std::nullopt;
}

bool beginsList(std::string_view text) {
  const std::string_view line = text::trimBlanks(text);
  return line.starts_with("- ") || line.starts_with("* ") || line.starts_with("+ ") || numberEnd(line);
}

// Lists that don't begin with 1 keep the numbers that they were given: what shows Markdown would count them
// from 1.
std::string withNumbersKept(const std::string& markdown) {
  const auto first = numberEnd(text::trimBlanks(markdown));
  if (!first || text::trimBlanks(markdown).substr(0, *first) == "1") return markdown;
  std::string kept;
  for (const std::string_view line : text::split(markdown, '\n')) {
    if (!kept.empty()) kept += '\n';
    const std::size_t blanks = std::min(line.find_first_not_of(" \t"), line.size());
    const auto end = numberEnd(line.substr(blanks));
    if (!end) {
      kept += line;
      continue;
    }
    kept.append(line.substr(0, blanks + *end)).append("\\").append(line.substr(blanks + *end));
    kept += "  ";  // a line of its own still
  }
  return kept;
}

// What stands behind the mark of a fence; nothing for a line that is none.
std::optional<std::string_view> behindFence(std::string_view line) {
  std::string_view rest = text::trimBlanks(line);
  if (!rest.starts_with("```")) return std::nullopt;
  while (rest.starts_with('`')) rest.remove_prefix(1);
  return text::trim(rest);
}

// A fenced block without its fences, and the words behind the first.
void unfence(ConversationBlock& block) {
  std::vector<std::string_view> lines = text::split(block.text, '\n');
  const auto language = behindFence(lines.front());
  if (!language) return;
  std::string label(*language);
  lines.erase(lines.begin());
  if (const auto rest = lines.empty() ? std::nullopt : behindFence(lines.back())) {
    lines.back() = *rest;  // nobody puts words there, but no word is lost
    if (rest->empty()) lines.pop_back();
  }
  std::string code;
  for (const auto& line : lines) code.append(&line == lines.data() ? "" : "\n").append(line);
  block.text = std::move(code);
  block.label = std::move(label);
}

bool isNotice(const AgentTranscriptMessage& message) { return message.role == "activity"; }

std::vector<ConversationBlock> blocksOf(const AgentTranscriptMessage& message) {
  std::vector<ConversationBlock> blocks;
  const auto add = [&](Kind kind, std::string text) -> ConversationBlock& {
    ConversationBlock& block = blocks.emplace_back();
    block.kind = kind;
    block.text = std::move(text);
    return block;
  };
  if (isNotice(message)) {
    add(Kind::activity, message.text).label = agentLabels::activityLine(message.text);
  } else if (message.role == "tool" || message.role == "tool-running") {
    add(Kind::tool, message.text).running = message.role == "tool-running";
  } else {
    const bool person = message.role == "user";
    bool list = false;
    for (AgentReadingStyle::Block& each : AgentReadingStyle::blocks(message.text)) {
      if (each.monospaced) {
        unfence(add(Kind::code, std::move(each.text)));
        list = false;
        continue;
      }
      // What blank lines part in a list belongs to it still.
      const bool item = !person && beginsList(each.text);
      if (item && list) {
        blocks.back().text.append("\n\n").append(each.text);
      } else {
        add(person ? Kind::words : Kind::prose, std::move(each.text));
      }
      list = item;
    }
    for (ConversationBlock& block : blocks) {
      block.person = person;
      if (block.kind == Kind::prose) block.text = withNumbersKept(block.text);
    }
  }
  if (blocks.empty()) return blocks;
  blocks.front().first = true;
  blocks.back().last = true;
  for (ConversationBlock& block : blocks) {
    block.message = message.id;
    block.timestamp = message.timestamp;
  }
  return blocks;
}

}  // namespace

std::vector<ConversationBlock> conversationBlocks(const std::vector<AgentTranscriptMessage>& messages,
                                                  bool activity) {
  std::vector<ConversationBlock> all;
  std::set<std::string> keys;
  for (const AgentTranscriptMessage& message : messages) {
    if (!activity && isNotice(message)) continue;
    int place = 0;
    for (ConversationBlock& block : blocksOf(message)) {
      block.key = message.id + "#" + std::to_string(place++);
      // Ids come from outside, and nobody promises that they differ.
      while (!keys.insert(block.key).second) block.key += "'";
      all.push_back(std::move(block));
    }
  }
  return all;
}

std::vector<std::size_t> findInConversation(const std::vector<ConversationBlock>& blocks,
                                            std::string_view words) {
  std::vector<std::size_t> found;
  const std::string wanted = text::lowercase(words);
  if (text::trim(wanted).empty()) return found;
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    if (blocks[i].kind != Kind::activity && text::lowercase(blocks[i].text).contains(wanted))
      found.push_back(i);
  }
  return found;
}

std::string conversationText(const std::vector<AgentTranscriptMessage>& messages, std::string_view agent) {
  std::string all;
  for (const AgentTranscriptMessage& message : messages) {
    if (isNotice(message)) continue;
    if (!all.empty()) all += "\n\n";
    if (message.role == "user") all += "You:\n";
    if (message.role == "assistant") all.append(agent).append(":\n");
    all += message.text;
  }
  return all;
}

}  // namespace ostrel
