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

struct FakeAgents {
  std::vector<HerdrAgent> agents;
  std::map<std::string, AgentLight> lights;  // by pane, for all of them
  std::string calls;
  Inventory inventory;  // made of `agents` when asked for
  ChangeSignal changes, rounds;

  AgentSource source() {
    return {[this]() -> const Inventory& {
              inventory.primary = AgentList(agents);
              return inventory;
            },
            [this](const HerdrAgent& agent) { return lights.at(agent.paneID); },
            [this](const AgentList&) { calls += "states "; },
            [this] { calls += "permissions "; },
            [this](ChangeSignal::Observer observer) { return changes.observe(std::move(observer)); },
            [this](ChangeSignal::Observer observer) { return rounds.observe(std::move(observer)); }};
  }
};

}  // namespace ostrel
