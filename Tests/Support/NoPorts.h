// Ports behind which nothing happens, for tests of what needs them only to be made.
#pragma once

#include "Platform/FileWatcher.h"
#include "Platform/ProcessExits.h"
#include "Platform/ServerLauncher.h"

namespace ostrel {

class NoExits final : public ProcessExits {
  Registration watch(std::int32_t, std::move_only_function<void()>) override { return {}; }
};

class NoFiles final : public FileWatcher {
  Registration watchFolder(const std::filesystem::path&, Changed) override { return {}; }
};

class NoServers final : public ServerLauncher {
  std::unique_ptr<LaunchedServer> launch(const std::string&, const std::vector<std::string>&,
                                         const std::map<std::string, std::string>&) override {
    return nullptr;
  }
};

}  // namespace ostrel
