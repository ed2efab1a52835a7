// The agents as they stand, each with its light. Made once after every change, in one order (states are
// noted, requests that were answered elsewhere end, lights are computed, then everybody is told) and shared
// by every face, so that no two of them show another light. Main thread only.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Agents/AgentList.h"
#include "Client/AgentInventory.h"
#include "Client/AgentLights.h"
#include "Runtime/Published.h"

namespace ostrel {

struct LitAgent {
  AgentList::Entry listed;
  AgentLight light = AgentLight::idle;
  const HerdrAgent& agent() const { return listed->agent; }
  const std::string& id() const { return listed->id; }
  // The same record: records that did not change are shared from one list to the next.
  bool operator==(const LitAgent&) const = default;
};

// One delivery.
struct LitList {
  std::vector<LitAgent> agents;       // those that the interface shows, in the inventory's order
  std::vector<LitAgent> loadedCodex;  // Codex threads that are loaded and linked to no agent
  // Every source has told what it knows. Until then an agent that appears may have been there before.
  bool complete = false;
  bool operator==(const LitList&) const = default;
};

// Where faces get them from. `LitAgents` is the program's; pictures and tests make up their own.
class LitSource {
 public:
  LitSource() = default;
  LitSource(const LitSource&) = delete;
  LitSource& operator=(const LitSource&) = delete;
  virtual ~LitSource() = default;

  // As they were delivered last.
  virtual const LitList& list() const = 0;
  // Of any record of the inventory, also one that another stands for in the list.
  virtual AgentLight light(const HerdrAgent& agent) const = 0;
  // Called after each delivery: agents, their lights, or what is derived from them may have changed.
  virtual Subscription observe(ChangeSignal::Observer observer) = 0;
};

class LitAgents final : public LitSource {
 public:
  // However quickly sources publish, a delivery comes at most once in this time.
  static constexpr Duration kDelivery = std::chrono::milliseconds(50);

  // What a delivery needs besides the inventory.
  class Round {
   public:
    // Ends the requests that were answered elsewhere.
    virtual void reconcileRequests() = 0;
    // Whether every source that runs has told what it knows at least once.
    virtual bool complete() = 0;

   protected:
    ~Round() = default;
  };
  LitAgents(MainLoop& loop, AgentInventory& inventory, Round& round);

  const LitList& list() const override { return list_; }
  AgentLight light(const HerdrAgent& agent) const override { return lights_.light(agent, loop_.wallNow()); }
  Subscription observe(ChangeSignal::Observer observer) override {
    return told_.observe(std::move(observer));
  }

  // Something has changed: delivered soon, at once after a pause.
  void changed() { throttle_.request(); }
  // Delivers now, for somebody who can't wait.
  void deliver();
  // A round of discovery has changed nothing; lights may have, since they depend on the time.
  void roundEnded();
  // The person has looked at the agent.
  void markSeen(std::string_view id);

 private:
  LitList current();

  MainLoop& loop_;
  AgentInventory& inventory_;
  Round& round_;
  AgentLights lights_;
  LitList list_;
  bool delivered_ = false;
  ChangeSignal told_;
  Throttle throttle_;
};

}  // namespace ostrel
