#include "Listing.h"

#include <algorithm>
#include <array>
#include <ctime>

#include <fmt/format.h>

#include "Runtime/Json.h"
#include "Runtime/ShownText.h"
#include "Runtime/Text.h"

namespace ostrel::console {

namespace {

using Fields = std::array<std::string, 6>;

Fields fieldsOf(const ShownAgent& shown) {
  const HerdrAgent& agent = shown.agent;
  Fields fields{
      agent.id(),  agent.provider, std::string(stateName(agent.state)), std::string(lightName(shown.light)),
      shown.title, agent.context};
  for (std::string& field : fields) field = text::marked(text::escapeControls(field));
  return fields;
}

std::string timestamp(WallTime time) {
  const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(time).time_since_epoch();
  const auto seconds = std::chrono::floor<std::chrono::seconds>(milliseconds);
  const std::time_t whole = seconds.count();
  std::tm parts{};
  ::gmtime_r(&whole, &parts);
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", parts.tm_year + 1900, parts.tm_mon + 1,
                     parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                     (milliseconds - seconds).count());
}

template <class T>
Json orNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json();
}

Json asObject(const ShownAgent& shown) {
  const HerdrAgent& agent = shown.agent;
  Json object{{"id", agent.id()},
              {"provider", agent.provider},
              {"state", stateName(agent.state)},
              {"light", lightName(shown.light)},
              {"title", shown.title},
              {"context", agent.context},
              {"project", agent.projectLabel()},
              {"host", orNull(agent.hostLabel())},
              {"pid", nullptr},
              {"tty", nullptr},
              {"since", agent.since ? Json(timestamp(*agent.since)) : Json()},
              {"pane", nullptr},
              {"transcript", nullptr}};
  if (agent.externalProcess) {
    object["pid"] = agent.externalProcess->pid;
    if (agent.externalProcess->tty != "??") object["tty"] = agent.externalProcess->tty;
  }
  if (agent.host().kind == AgentHost::Kind::herdr && !agent.isExternal()) {
    object["pane"] = {
        {"session", agent.session}, {"id", agent.paneID}, {"terminal", orNull(agent.terminalID)}};
  }
  if (agent.transcriptReference) {
    object["transcript"] = {{"kind", orNull(agent.transcriptKind)},
                            {"reference", *agent.transcriptReference},
                            {"path", orNull(shown.transcript)}};
  }
  return object;
}

}  // namespace

std::string asText(const Listing& list, bool columns) {
  std::string result;
  const bool empty = list.agents.empty() && list.loadedCodex.empty();
  if (columns && empty) result = "No agents running\n";
  std::vector<Fields> rows;
  if (columns && !empty) rows.push_back({"ID", "PROVIDER", "STATE", "LIGHT", "TITLE", "CONTEXT"});
  for (const ShownAgent& shown : list.agents) rows.push_back(fieldsOf(shown));
  for (const ShownAgent& shown : list.loadedCodex) rows.push_back(fieldsOf(shown));

  std::array<std::size_t, std::tuple_size_v<Fields>> widths{};
  if (columns) {
    for (const Fields& row : rows) {
      for (std::size_t i = 0; i < row.size(); ++i)
        widths[i] = std::max(widths[i], text::characterCount(row[i]));
    }
  }
  for (const Fields& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      result += row[i];
      if (i + 1 == row.size()) {
        result += '\n';
      } else if (columns) {
        result.append(widths[i] - text::characterCount(row[i]) + 2, ' ');
      } else {
        result += '\t';
      }
    }
  }
  return result;
}

std::string asJson(const Listing& list) { return json::dump(asJsonObject(list)) + "\n"; }

Json asJsonObject(const Listing& list) {
  Json object{{"agents", Json::array()}};
  for (const ShownAgent& shown : list.agents) object["agents"].push_back(asObject(shown));
  for (const ShownAgent& shown : list.loadedCodex) object["loadedCodex"].push_back(asObject(shown));
  if (list.error) object["error"] = *list.error;
  if (list.herdr) object["herdr"] = {{"status", *list.herdr}, {"error", orNull(list.herdrError)}};
  return object;
}

}  // namespace ostrel::console
