// Made-up agents, for a look at the views without any that run: the pictures of a snapshot run, and
// `--preview-agents`. Main thread only.
#pragma once

#include <string>
#include <vector>

#include "Client/LitAgents.h"

namespace ostrel {

class SampleAgents final : public LitSource {
 public:
  // So many of them; beyond seven they begin anew, in projects of their own.
  explicit SampleAgents(std::size_t count = 7);

  const LitList& list() const override { return list_; }
  AgentLight light(const HerdrAgent& agent) const override;
  Subscription observe(ChangeSignal::Observer observer) override {
    return changes_.observe(std::move(observer));
  }
  const std::vector<HerdrAgent>& agents() const { return agents_; }
  // One more, in a pane.
  static HerdrAgent pane();
  // Tells nobody yet.
  void setLight(std::size_t index, AgentLight light) { list_.agents.at(index).light = light; }
  void tell() { changes_.notify(); }

 private:
  std::vector<HerdrAgent> agents_;
  LitList list_;
  ChangeSignal changes_;
};

}  // namespace ostrel
