#include "App/ResidentProgram.h"

#include <algorithm>
#include <utility>

#include "App/Launch.h"
#include "App/OstrelSetting.h"

namespace ostrel {

ResidentProgram::ResidentProgram(OstrelPreferences& preferences, OtherCopies& copies,
                                 std::vector<std::string> arguments, Steps steps)
    : preferences_(preferences),
      copies_(copies),
      arguments_(std::move(arguments)),
      steps_(std::move(steps)) {}

bool ResidentProgram::launch() {
  if (arguments_.size() <= 1 && steps_.showRunning()) return false;
  preferences_.migrate();
  preferences_.shared().registerDefaults(OstrelSetting::defaults());
  if (!launch::isTestRun(arguments_) && copies_.quitOtherCopies()) return false;
  steps_.makeWindows();
  if (!preferences_.isFixture()) {
    discovering_ = true;
    steps_.startDiscovery();
  } else if (std::ranges::find(arguments_, launch::kCheckDiscoveryLive) != arguments_.end()) {
    steps_.checkDiscovery();
  }
  steps_.showWindows();
  return true;
}

void ResidentProgram::terminate() {
  if (std::exchange(discovering_, false)) steps_.stopDiscovery();
}

}  // namespace ostrel
