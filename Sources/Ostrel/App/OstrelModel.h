// The one object that the interface binds to: the agents in the order in which they are shown, which of them
// the keyboard has chosen, and the words about them. Main thread only.
//
// The lists are computed at each call, of the agents and lights that were delivered last, whose records they
// share. Views ask again at each delivery.
#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "App/AgentGroups.h"
#include "Client/LitAgents.h"
#include "Runtime/Published.h"

namespace ostrel {

class OstrelModel {
 public:
  // Both outlive the model. `preferences` has the titles that the person gave, by which the list is filtered;
  // may be null.
  explicit OstrelModel(LitSource& source, const Preferences* preferences = nullptr);

  // What the filter leaves, as `agentGroups` orders them, or in the frozen order.
  std::vector<AgentGroup> agentGroups() const;
  // By light, most urgent first; never frozen.
  std::vector<LitAgent> railAgents() const;
  std::vector<AgentLight> notchLights() const;
  AgentLight light(const HerdrAgent& agent) const { return source_.light(agent); }
  int agentCount() const;
  // How many have that light.
  std::array<int, 4> lightCounts() const;
  // "2 need you", "1 working".
  static std::string countWords(AgentLight light, int count);
  // "2 needs you · 1 working", for screen readers.
  std::string notchSummary() const;
  // The agent list's own line: "1 needs you · 2 working", "3 agents · all quiet".
  std::string selectorSummary() const;
  // Whether the list's sections have headings: not where everybody is of one project and nobody waits.
  static bool hasHeadings(const std::vector<AgentGroup>& groups);
  // The height of the whole agent list in rows, whatever is filtered: a heading is six tenths of a row, the
  // sum is rounded up.
  int selectorRowCount() const;

  // The keyboard's way through the list: chooses the agent below or above the chosen one, as the list stands.
  // Where none is chosen, or it has gone, the first or the last. The ends don't wrap.
  void moveSelection(bool down);
  // The agent that the keyboard has chosen, while it is there.
  std::optional<HerdrAgent> selectedAgent() const;
  // The one of that id, while it is there.
  std::optional<LitAgent> find(std::string_view id) const;

  // The agent below or above that one in the list, round and round; the first or last where it has gone.
  // Nothing where there is no other.
  std::optional<HerdrAgent> neighbour(std::string_view id, bool down) const;
  // The next below it that needs the person, round and round; nothing where no other does.
  std::optional<HerdrAgent> nextWaiting(std::string_view id) const;

  void clearSelection() { keyboardSelection_.set(std::nullopt); }
  // The id of the chosen agent.
  const Published<std::optional<std::string>>& keyboardSelection() const { return keyboardSelection_; }

  // What the list shows of the agents; handle, rail and counts have all of them. With words in the filter the
  // keyboard's choice is always one of those that are left.
  void setFilter(AgentFilter filter);
  const Published<AgentFilter>& filter() const { return filter_; }
  // Says why the list shows nobody though there are agents; empty where it shows somebody.
  std::string emptyResult() const;

  // Keeps the list in the order it has now, while the pointer is in it; new agents go to the end of their
  // project.
  void freezeOrder(bool freeze);

  // Something that the lists depend on may have changed.
  Subscription observe(ChangeSignal::Observer observer) { return changes_.observe(std::move(observer)); }
  // Called at each delivery after `changes`: the counts may have changed.
  std::function<void()> onLayout;
  // Called at the end of each delivery.
  std::function<void(const LitList&)> onAgents;

  // One line about what the person has asked for.
  const Published<std::optional<std::string>>& statusMessage() const { return statusMessage_; }
  void say(std::string status) { statusMessage_.set(std::move(status)); }
  // Why the list may not be whole.
  const Published<std::vector<std::string>>& problems() const { return problems_; }
  void setProblems(std::vector<std::string> problems) { problems_.set(std::move(problems)); }

 private:
  void deliver();
  std::vector<std::string> displayOrder() const;

  const FrozenGroups* frozen() const { return frozen_ ? &*frozen_ : nullptr; }

  LitSource& source_;
  const Preferences* preferences_;
  ChangeSignal changes_;
  std::optional<FrozenGroups> frozen_;
  Published<AgentFilter> filter_;
  Published<std::optional<std::string>> keyboardSelection_;
  Published<std::optional<std::string>> statusMessage_;
  Published<std::vector<std::string>> problems_;
  Subscription deliveries_;
};

}  // namespace ostrel
