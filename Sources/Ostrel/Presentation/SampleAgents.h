// Made-up agents, for a look at the views without any that run: the pictures of a snapshot run, and
// `--preview-agents`. Main thread only.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "App/OstrelModel.h"

namespace ostrel {

class SampleAgents {
 public:
  // So many of them; beyond seven they begin anew, in projects of their own.
  explicit SampleAgents(std::size_t count = 7);

  AgentSource source();
  const std::vector<HerdrAgent>& agents() const { return agents_; }
  // One more, in a pane.
  static HerdrAgent pane();
  // Tells nobody yet.
  void setLight(std::size_t index, AgentLight light) { lights_.at(agents_.at(index).id()) = light; }
  void tell() { changes_.notify(); }

 private:
  std::vector<HerdrAgent> agents_;
  std::map<std::string, AgentLight> lights_;  // by id
  Inventory inventory_;
  ChangeSignal changes_;
  ChangeSignal rounds_;
};

}  // namespace ostrel
