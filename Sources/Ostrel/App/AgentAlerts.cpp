#include "App/AgentAlerts.h"

#include <utility>

#include "App/OstrelSetting.h"

namespace ostrel {

AgentAlerts::AgentAlerts(Ports ports, std::function<void(const HerdrAgent&)> open)
    : ports_(ports), open_(std::move(open)) {
  if (!ports_.notifications) return;
  ports_.notifications->onClick([this](const std::string& id) {
    const auto agent = agents_.find(id);
    if (agent == agents_.end()) return;
    const HerdrAgent found = agent->second;  // opening may bring the next update
    open_(found);
  });
}

AgentAlerts::~AgentAlerts() {
  if (ports_.notifications) ports_.notifications->onClick({});
}

void AgentAlerts::requestPermission() {
  const bool wanted = ports_.preferences.boolean(OstrelSetting::notifyNeedsYou) ||
                      ports_.preferences.boolean(OstrelSetting::notifyDone);
  if (wanted && ports_.notifications) ports_.notifications->requestPermission();
}

void AgentAlerts::update(const std::vector<AgentWithLight>& agents) {
  std::map<std::string, AgentLight> lights;
  std::set<std::string> working;
  agents_.clear();
  for (const auto& [agent, light] : agents) {
    const std::string id = agent.id();
    lights.insert_or_assign(id, light);
    if (agent.state == "working") working.insert(id);
    agents_.insert_or_assign(id, agent);
  }
  const auto before = std::exchange(previous_, std::move(lights));
  const auto reported = std::exchange(reportedWorking_, std::move(working));
  if (!before) return;
  for (const auto& [agent, light] : agents) {
    const std::string id = agent.id();
    const auto old = before->find(id);
    const bool known = old != before->end();
    if (light == AgentLight::needsYou) {
      if (!known || old->second != AgentLight::needsYou) alert(agent, AgentSounds::Kind::needsYou);
    } else if (light != AgentLight::working && known && old->second == AgentLight::working &&
               reported.contains(id)) {
      // Work that was only inferred from a growing transcript does not finish: it falls silent.
      alert(agent, AgentSounds::Kind::finished);
    }
  }
}

void AgentAlerts::alert(const HerdrAgent& agent, AgentSounds::Kind kind) {
  const bool finished = kind == AgentSounds::Kind::finished;
  const Preferences& wanted = ports_.preferences;
  if (wanted.boolean(finished ? OstrelSetting::soundFinished : OstrelSetting::soundNeedsYou))
    ports_.sounds.play(kind, false);
  if (!ports_.notifications) return;
  if (!wanted.boolean(finished ? OstrelSetting::notifyDone : OstrelSetting::notifyNeedsYou)) return;
  ports_.notifications->post({.agent = agent.id(),
                              .title = agent.displayTitle(wanted) + (finished ? " finished" : " needs you"),
                              .body = finished ? "Ready for your review." : "Waiting for your answer."});
}

}  // namespace ostrel
