// The order in which the resident program starts and ends. The windowless steps are here; a composition root
// supplies what they start. Main thread only.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "App/OstrelPreferences.h"
#include "App/OtherCopies.h"

namespace ostrel {

class ResidentProgram {
 public:
  struct Steps {
    // Lets a copy that is like this one show itself; true when it did, and this one is not needed. Asked only
    // where the program was started without arguments, as a person does.
    std::function<bool()> showRunning = [] { return false; };
    // Makes the windows, so that what discovery finds has somewhere to go; and, once it has begun, shows the
    // edge. Nothing where there is no display.
    std::function<void()> makeWindows = [] {};
    std::function<void()> showWindows = [] {};
    // Begins to find agents. Not called in a fixture run, which leaves the user's agents alone.
    std::function<void()> startDiscovery;
    // One scan for its line on standard output: called in a run that was asked for it.
    std::function<void()> checkDiscovery;
    // Ends what `startDiscovery` began; the wish to reconnect is kept.
    std::function<void()> stopDiscovery;
  };

  // `arguments` with the program path first.
  ResidentProgram(OstrelPreferences& preferences, OtherCopies& copies, std::vector<std::string> arguments,
                  Steps steps);

  // Everything up to the first scan. False when a copy like this one has shown itself, or when another
  // is under a debugger: then nothing was started, and this one must end.
  bool launch();
  // To be called once before the program ends, launched or not.
  void terminate();

 private:
  OstrelPreferences& preferences_;
  OtherCopies& copies_;
  std::vector<std::string> arguments_;
  Steps steps_;
  bool discovering_ = false;
};

}  // namespace ostrel
