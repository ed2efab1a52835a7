// A source of agents for tests.
#pragma once

#include <map>

#include "App/OstrelModel.h"

namespace ostrel {

// An agent of session "s": its id is "1:s" and the pane.
inline HerdrAgent agentOf(const std::string& pane, const std::string& context = "/work/one") {
  HerdrAgent agent;
  agent.session = "s";
  agent.title = "Agent " + pane;
  agent.paneID = pane;
  agent.context = context;
  return agent;
}

struct FakeAgents final : LitSource {
  std::vector<HerdrAgent> agents;
  std::map<std::string, AgentLight> lights;  // by pane, for all of them
  bool complete = true;
  ChangeSignal changes;

  // Makes the list anew of the above.
  const LitList& list() const override {
    list_ = {};
    list_.complete = complete;
    for (const HerdrAgent& agent : agents)
      list_.agents.push_back({std::make_shared<ListedAgent>(agent), lights.at(agent.paneID)});
    return list_;
  }
  AgentLight light(const HerdrAgent& agent) const override { return lights.at(agent.paneID); }
  Subscription observe(ChangeSignal::Observer observer) override {
    return changes.observe(std::move(observer));
  }

 private:
  mutable LitList list_;
};

}  // namespace ostrel
