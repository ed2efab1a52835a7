// Made-up requests of Claude Code and Codex, one of each kind, for a look at their cards without an agent
// that asks. Main thread only.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "RequestsBridge.h"

namespace ostrel {

class SampleRequests final : public RequestSource {
 public:
  // What the samples are called, "bash" and the like.
  static std::vector<std::string> names();
  SampleRequests() = default;
  explicit SampleRequests(const std::string& name) { ask(name); }

  // The agent that asks; nobody in the list does where this is not said.
  void askFor(std::string agent) { agent_ = std::move(agent); }
  // What is asked now; nothing for an empty name.
  void ask(const std::string& name);

  // What a person might have entered into the card of that sample; false for one that has nothing of the
  // kind.
  bool enter(const std::string& name, RequestsBridge& bridge);

  // An answered request of Claude's goes; one of Codex's stays, as sent.
  std::vector<OpenRequest> list() override;
  std::vector<OpenRequest> of(const HerdrAgent&) override { return list(); }
  std::optional<Controls> controls(const HerdrAgent& agent) override;
  void answer(const std::string& request, const RequestAnswer& answer) override;
  void openLink(const std::string&) override { linkOpened_ = true; }
  Subscription observe(ChangeSignal::Observer observer) override {
    return changed_.observe(std::move(observer));
  }

 private:
  void make(const std::string& name);

  std::optional<ClaudePermissionRequest> claude_;
  std::optional<CodexRequest> codex_;
  std::optional<std::string> item_;
  std::optional<std::string> agent_;
  bool sent_ = false;
  bool linkOpened_ = false;
  ChangeSignal changed_;
};

}  // namespace ostrel
