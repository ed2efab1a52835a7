// Turns to messages. Walks the result once, since it can be megabytes of command output that nobody shows.
#include <algorithm>
#include <chrono>
#include <set>

#include <fmt/format.h>
#include <simdjson.h>

#include "Codex/CodexLocalServer.h"
#include "Runtime/Text.h"

namespace ostrel::CodexLocalServer {

namespace {

namespace od = simdjson::ondemand;
using simdjson::error_code;

struct Turn {
  std::vector<Item> items;
  std::optional<std::string> startedAt, completedAt;
};

// A value of another type is passed over; bytes that are not JSON end the reading.
bool fits(error_code error) {
  if (error && error != simdjson::INCORRECT_TYPE && error != simdjson::NUMBER_ERROR) throw error;
  return !error;
}

void must(error_code error) {
  if (error) throw error;
}

void take(od::value value, std::optional<std::string>& out) {
  std::string_view text;
  if (fits(value.get_string().get(text))) out = text;
}

// A number of seconds since 1970, as a date formatter writes it.
void takeTime(od::value value, std::optional<std::string>& out) {
  using namespace std::chrono;
  constexpr double kYear9999 = 253'402'300'799.0;
  double number = 0;
  if (!fits(value.get_double().get(number)) || !(number >= 0 && number <= kYear9999)) return;
  const sys_seconds time{seconds(static_cast<std::int64_t>(number))};
  const auto day = floor<days>(time);
  const year_month_day date(day);
  const hh_mm_ss clock(time - day);
  out = fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", static_cast<int>(date.year()),
                    static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                    clock.hours().count(), clock.minutes().count(), clock.seconds().count());
}

template <class Visit>
bool eachField(od::value value, Visit visit) {
  od::object object;
  if (!fits(value.get_object().get(object))) return false;
  for (auto result : object) {
    od::field field;
    std::string_view key;
    must(std::move(result).get(field));
    must(field.unescaped_key().get(key));
    visit(key, field.value());
  }
  return true;
}

template <class Visit>
bool eachElement(od::value value, Visit visit) {
  od::array array;
  if (!fits(value.get_array().get(array))) return false;
  for (auto result : array) {
    od::value element;
    must(std::move(result).get(element));
    visit(element);
  }
  return true;
}

// The texts of a message's parts, two newlines between them.
void takeParts(od::value value, std::optional<std::string>& out) {
  eachElement(value, [&](od::value part) {
    std::optional<std::string> type, text;
    eachField(part, [&](std::string_view key, od::value member) {
      if (key == "type") take(member, type);
      if (key == "text") take(member, text);
    });
    if (type != "text" || !text) return;
    if (out) *out += "\n\n";
    out = out.value_or("") + *text;
  });
}

void takeItem(od::value value, std::vector<Item>& items) {
  Item item;
  eachField(value, [&](std::string_view key, od::value member) {
    if (key == "id") take(member, item.id);
    if (key == "type") take(member, item.type);
    if (key == "text") take(member, item.text);
    if (key == "content") takeParts(member, item.content);
    if (key == "command") take(member, item.command);
    if (key == "server") take(member, item.server);
    if (key == "tool") take(member, item.tool);
    if (key == "status") take(member, item.status);
    if (double number = 0; key == "durationMs" && fits(member.get_double().get(number)))
      item.durationMs = number;
  });
  if (item.id && item.type) items.push_back(std::move(item));
}

std::vector<Turn> turnsOf(std::string& result) {
  result.reserve(result.size() + simdjson::SIMDJSON_PADDING);
  od::parser parser;
  od::document document;
  od::value data;
  must(parser.iterate(result.data(), result.size(), result.capacity()).get(document));
  must(document["data"].get(data));
  std::vector<Turn> turns;
  const bool array = eachElement(data, [&](od::value value) {
    Turn turn;
    const bool object = eachField(value, [&](std::string_view key, od::value member) {
      if (key == "startedAt") takeTime(member, turn.startedAt);
      if (key == "completedAt") takeTime(member, turn.completedAt);
      if (key == "items") eachElement(member, [&](od::value item) { takeItem(item, turn.items); });
    });
    if (!object) throw simdjson::INCORRECT_TYPE;
    turns.push_back(std::move(turn));
  });
  if (!array) throw simdjson::INCORRECT_TYPE;
  std::ranges::reverse(turns);
  return turns;
}

std::optional<AgentTranscriptMessage> spoken(const Item& item, const Turn& turn) {
  const bool user = item.type == "userMessage";
  if (!user && item.type != "agentMessage") return std::nullopt;
  const auto& whole = user ? item.content : item.text;
  const std::string_view text = whole ? text::trim(*whole) : std::string_view();
  if (text.empty()) return std::nullopt;
  const bool notice = AgentTranscript::isRuntimeNotification(text, user ? "user" : "assistant");
  return AgentTranscriptMessage{*item.id,
                                notice ? "activity"
                                : user ? "user"
                                       : "assistant",
                                std::string(text), user ? turn.startedAt : turn.completedAt};
}

}  // namespace

std::optional<AgentTranscriptMessage> toolActivity(const Item& item) {
  if (!item.id) return std::nullopt;
  std::string label;
  if (item.type == "commandExecution") {
    label = item.command.value_or("Command");
  } else if (item.type == "mcpToolCall") {
    label = item.server.value_or("");
    if (item.server && item.tool) label += " · ";
    label += item.tool.value_or("");
  } else if (item.type == "fileChange") {
    label = "File changes";
  } else {
    return std::nullopt;
  }
  const bool running = item.status == "inProgress";
  const bool refused = item.status == "failed" || item.status == "declined";
  std::string text = (running   ? "Running"
                      : refused ? text::capitalizedFirst(*item.status)
                                : "Ran") +
                     " · " + label;
  if (item.durationMs) text += fmt::format(" · {:.1f}s", *item.durationMs / 1000.0);
  return AgentTranscriptMessage{*item.id, running ? "tool-running" : "tool", std::move(text), {}};
}

std::vector<AgentTranscriptMessage> messages(std::string& result) {
  std::vector<Turn> turns;
  try {
    turns = turnsOf(result);
  } catch (const error_code&) {
    throw Failure("Unsupported Codex history response.");
  }
  std::vector<AgentTranscriptMessage> all;
  std::set<std::string_view> seen;
  for (const Turn& turn : turns) {
    for (const Item& item : turn.items) {
      if (!seen.insert(*item.id).second) continue;
      auto message = toolActivity(item);
      if (!message) message = spoken(item, turn);
      if (message) all.push_back(std::move(*message));
    }
  }
  return all;
}

}  // namespace ostrel::CodexLocalServer
