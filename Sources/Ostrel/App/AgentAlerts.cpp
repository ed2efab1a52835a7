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

void AgentAlerts::update(const LitList& list) {
  std::map<std::string, AgentLight> lights;
  std::set<std::string> working;
  agents_.clear();
  for (const LitAgent& lit : list.agents) {
    lights.insert_or_assign(lit.id(), lit.light);
    if (lit.agent().state == AgentState::working) working.insert(lit.id());
    agents_.insert_or_assign(lit.id(), lit.agent());
  }
  const auto before = std::exchange(previous_, std::move(lights));
  const auto reported = std::exchange(reportedWorking_, std::move(working));
  const bool joining = std::exchange(joining_, !list.complete) || joining_;
  for (const LitAgent& lit : list.agents) {
    const auto old = before.find(lit.id());
    const bool known = old != before.end();
    if (lit.light == AgentLight::needsYou) {
      if (known ? old->second != AgentLight::needsYou : !joining)
        alert(lit.agent(), AgentSounds::Kind::needsYou);
    } else if (lit.light != AgentLight::working && known && old->second == AgentLight::working &&
               reported.contains(lit.id())) {
      // Work that was only inferred from a growing transcript does not finish: it falls silent.
      alert(lit.agent(), AgentSounds::Kind::finished);
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
