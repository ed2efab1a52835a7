// `ServerLauncher` by posix_spawn. A server that ends is waited for when it is asked about, or by the system
// when this program has gone.
#pragma once

#include "Platform/ServerLauncher.h"

namespace ostrel {

class SpawnedServers final : public ServerLauncher {
 public:
  std::unique_ptr<LaunchedServer> launch(const std::string& executable,
                                         const std::vector<std::string>& arguments,
                                         const std::map<std::string, std::string>& environment) override;
};

}  // namespace ostrel
