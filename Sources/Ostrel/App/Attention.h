// How long lights ask for attention: they breathe for a while after another agent began to need the person,
// and then stand. Whoever has not seen it by then is not at the screen, and a motion without end costs power
// for nobody. Main thread only.
#pragma once

#include <chrono>
#include <set>
#include <string>

#include "Runtime/MainLoop.h"
#include "Runtime/Published.h"

namespace ostrel {

class Attention {
 public:
  static constexpr Duration kBreathes = std::chrono::seconds(20);

  // `breathing` is written by this object alone. Both outlive it.
  Attention(MainLoop& loop, Published<bool>& breathing) : loop_(loop), breathing_(breathing) {}

  // The ids of all agents that need the person now.
  void follow(std::set<std::string> waiting);

 private:
  MainLoop& loop_;
  Published<bool>& breathing_;
  std::set<std::string> waiting_;
  Timer end_;
};

}  // namespace ostrel
