// The agent list's order: who needs the person first, over all projects, then the projects by their latest
// change. Pure functions over the agents that were delivered.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "Client/LitAgents.h"

namespace ostrel {

struct AgentGroup {
  std::string project;
  // The section over all projects. Whoever stands there does not stand in its project; `project` is its name.
  bool needsYou = false;
  std::vector<LitAgent> agents;
  bool operator==(const AgentGroup&) const = default;
};

// The sections as they stood at one moment, for a list that the pointer is in.
class FrozenGroups {
 public:
  explicit FrozenGroups(const std::vector<AgentGroup>& groups);

  struct Place {
    std::size_t group = 0;
    std::size_t rank = 0;  // over all groups
    AgentLight light = AgentLight::idle;
  };
  // Nothing for an agent that came later.
  std::optional<Place> place(const std::string& id) const;
  // That project's section, if there was one.
  std::optional<std::size_t> project(const std::string& name) const;
  // The sections, without agents.
  const std::vector<AgentGroup>& headings() const { return headings_; }

 private:
  std::vector<AgentGroup> headings_;
  std::unordered_map<std::string, Place> places_;
};

// The sections from top to bottom; none is empty. Among those that need the person who has waited longest
// comes first; in a project agents stand as they are listed. With `frozen` everybody stays where they were,
// whatever their lights are now; who is new goes to the end of their project.
std::vector<AgentGroup> agentGroups(const std::vector<LitAgent>& agents, const FrozenGroups* frozen);

// What the person wants to see of the list.
struct AgentFilter {
  std::string
      text;  // each word of it must be in the title, the project or the provider; case does not matter
  std::optional<AgentLight> light;  // only those
  bool empty() const { return text.empty() && !light; }
  bool operator==(const AgentFilter&) const = default;
};

// What is left of the sections. A light that was chosen is compared with the frozen one where there is one: a
// row does not go below the pointer. Titles are the person's own where `preferences` has them; may be null.
std::vector<AgentGroup> filtered(std::vector<AgentGroup> groups, const AgentFilter& filter,
                                 const FrozenGroups* frozen, const Preferences* preferences);

}  // namespace ostrel
