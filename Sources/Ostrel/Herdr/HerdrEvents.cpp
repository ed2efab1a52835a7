#include "Herdr/HerdrEvents.h"

#include <algorithm>

#include "Herdr/HerdrProtocol.h"
#include "Runtime/Failure.h"

namespace ostrel::HerdrEvents {

namespace {

const HerdrAgent* find(std::span<const HerdrAgent> known, const std::optional<std::string>& pane) {
  const auto found =
      std::ranges::find_if(known, [&](const HerdrAgent& agent) { return agent.paneID == pane; });
  return found == known.end() ? nullptr : &*found;
}

// Plain types come with an underscore, subscribed ones as they were asked for.
std::string kindOf(const Json& event) {
  std::string kind = json::string(event, "event").value_or("");
  std::ranges::replace(kind, '.', '_');
  return kind;
}

// An event that carries the pane's row.
bool rowIsNews(const Json& data, const Json& row, std::span<const HerdrAgent> known) {
  const auto previous = json::string(data, "previous_pane_id");
  const auto pane = json::string(row, "pane_id");
  if (previous && previous != pane && find(known, previous)) return true;
  const HerdrAgent* const agent = find(known, pane);
  if (!agent) return json::string(row, "agent").has_value();
  try {
    const auto now = HerdrProtocol::agentsIn(Json{{"agents", Json::array({row})}}, agent->session, {});
    return now.front() != *agent;
  } catch (const Failure&) {
    return true;
  }
}

}  // namespace

Json plainSubscriptions() {
  Json list = Json::array();
  for (const char* type :
       {"pane.created", "pane.closed", "pane.exited", "pane.updated", "pane.moved", "pane.agent_detected"}) {
    list.push_back({{"type", type}});
  }
  return list;
}

Json statusSubscriptions(std::span<const std::string> panes) {
  Json list = Json::array();
  for (const std::string& pane : panes)
    list.push_back({{"type", "pane.agent_status_changed"}, {"pane_id", pane}});
  return list;
}

std::optional<Status> statusIn(const Json& event) {
  const Json* const data = json::member(event, "data");
  if (kindOf(event) != "pane_agent_status_changed" || !data) return std::nullopt;
  auto pane = json::string(*data, "pane_id");
  const auto state = json::string(*data, "agent_status");
  if (!pane || !state) return std::nullopt;
  return Status{std::move(*pane), stateNamed(*state)};
}

bool isNews(const Json& event, std::span<const HerdrAgent> known) {
  const Json* const data = json::member(event, "data");
  if (!data || !data->is_object()) return true;
  if (const Json* const row = json::member(*data, "pane"); row && row->is_object())
    return rowIsNews(*data, *row, known);
  const std::string kind = kindOf(event);
  const HerdrAgent* const agent = find(known, json::string(*data, "pane_id"));
  if (kind == "pane_closed" || kind == "pane_exited") return agent != nullptr;
  if (kind == "pane_agent_detected") {
    const auto provider = json::string(*data, "agent");
    return agent ? provider != agent->provider : provider.has_value();
  }
  if (const auto status = statusIn(event)) {
    return !agent || agent->state != status->state ||
           json::string(*data, "title").value_or(agent->title) != agent->title;
  }
  return true;
}

}  // namespace ostrel::HerdrEvents
