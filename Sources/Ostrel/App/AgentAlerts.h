// Decides when the person is told of an agent without looking: by a banner, by a sound, by both. Main thread
// only.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "App/AgentSounds.h"
#include "Client/LitAgents.h"
#include "Platform/Notifications.h"
#include "Platform/Preferences.h"

namespace ostrel {

class AgentAlerts {
 public:
  // `notifications` is null for a program outside an installation, which keeps its banners to itself. `open`
  // gets the agent whose banner was clicked; one that is gone by then is passed over.
  struct Ports {
    Preferences& preferences;
    AgentSounds& sounds;
    Notifications* notifications = nullptr;
  };
  AgentAlerts(Ports ports, std::function<void(const HerdrAgent&)> open);
  AgentAlerts(const AgentAlerts&) = delete;
  AgentAlerts& operator=(const AgentAlerts&) = delete;
  ~AgentAlerts();

  // To be called at each delivery. What waits when the sources first tell all they know, at the launch or
  // once another one was joined, is shown by the lights alone.
  void update(const LitList& list);
  // Asks for leave to post where a banner is wanted: at the launch, and when one is switched on.
  void requestPermission();

 private:
  void alert(const HerdrAgent& agent, AgentSounds::Kind kind);

  Ports ports_;
  std::function<void(const HerdrAgent&)> open_;
  std::map<std::string, AgentLight> previous_;
  bool joining_ = true;  // some source has not told what it knows yet: who appears may have been there before
  std::set<std::string> reportedWorking_;  // those who said themselves that they were working
  std::map<std::string, HerdrAgent> agents_;
};

}  // namespace ostrel
