// The one object that the interface binds to: the agents in the order in which they are shown, and the little
// state of the interface that is not about agents. Main thread only.
//
// The lists are computed at each call, of the agents and lights that were delivered last. Views ask again at
// each delivery.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "App/EdgeGeometry.h"
#include "Client/LitAgents.h"
#include "Runtime/Published.h"

namespace ostrel {

struct AgentWithLight {
  HerdrAgent agent;
  AgentLight light = AgentLight::idle;
  bool operator==(const AgentWithLight&) const = default;
};

struct AgentGroup {
  std::string project;
  std::vector<HerdrAgent> agents;
  bool operator==(const AgentGroup&) const = default;
};

class OstrelModel {
 public:
  // `source` outlives the model.
  explicit OstrelModel(LitSource& source);

  // By project, projects in the order of their first agent; inside a project those first that need the
  // person, or everything in the frozen order.
  std::vector<AgentGroup> agentGroups() const;
  // By light, most urgent first; never frozen.
  std::vector<AgentWithLight> railAgents() const;
  std::vector<AgentLight> notchLights() const;
  AgentLight light(const HerdrAgent& agent) const { return source_.light(agent); }
  int agentCount() const;
  // "2 needs you · 1 working", for screen readers.
  std::string notchSummary() const;
  // The agent list's own line: "1 needs you · 2 working", "3 agents · all quiet".
  std::string selectorSummary() const;
  // The height of the agent list in rows: a heading is six tenths of a row, the sum is rounded up.
  int selectorRowCount() const;

  // The keyboard's way through the list: chooses the agent below or above the chosen one, as the list stands.
  // Where none is chosen, or it has gone, the first or the last. The ends don't wrap.
  void moveSelection(bool down);
  // The agent that the keyboard has chosen, while it is there.
  std::optional<HerdrAgent> selectedAgent() const;

  // Keeps the list in the order it has now, while the pointer is in it; new agents go to the end of their
  // group.
  void freezeOrder(bool freeze);
  const std::optional<std::vector<std::string>>& frozenOrder() const { return frozenOrder_; }

  // Something that the lists depend on may have changed.
  Subscription observe(ChangeSignal::Observer observer) { return changes_.observe(std::move(observer)); }
  // Called at each delivery after `changes`: the counts may have changed.
  std::function<void()> onLayout;
  // Called at the end of each delivery.
  std::function<void(const LitList&)> onAgents;

  // State of the interface. Who decides it writes it here, views read it.
  Published<int> selectorWidth;  // points
  Published<PanelTab> selectedTab{PanelTab::agents};
  Published<std::optional<std::string>> keyboardSelection;  // the id of an agent
  Published<bool> showingUsage;                             // in the place of the agent list
  Published<bool> showingNewSession;  // the sheet for a new agent, which keeps its panel open
  Published<bool> railExpanded;       // the rail's rows are in
  Published<bool> pillExpanded;       // the pill shows its pages
  Published<bool> notchAway;          // the handle has slid off
  Published<bool> isPanelVisible;
  Published<std::optional<std::string>> statusMessage;  // one line about what was asked for
  Published<std::vector<std::string>> problems;         // why the list may not be whole

 private:
  void deliver();
  std::vector<std::string> displayOrder() const;

  LitSource& source_;
  ChangeSignal changes_;
  std::optional<std::vector<std::string>> frozenOrder_;
  Subscription deliveries_;
};

}  // namespace ostrel
