// Ports behind which nothing happens, for tests of what needs them only to be made.
#pragma once

#include "Herdr/HerdrPort.h"
#include "Platform/FileWatcher.h"
#include "Platform/Openers.h"
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

// No Herdr is installed.
class NoHerdr : public HerdrPort {
 public:
  std::optional<std::filesystem::path> find() override { return std::nullopt; }
  bool isExecutable(const std::filesystem::path&) override { return false; }
  std::string run(const std::filesystem::path&, const std::vector<std::string>&, Duration,
                  std::stop_token) override {
    return {};
  }
  Task<Json> request(std::string, std::string, Json) override { co_return Json(); }
  Task<void> events(std::string, Json, std::function<void()>, std::function<void(const Json&)>) override {
    co_return;
  }
  Task<std::string> read(std::string, std::string, std::string) override { co_return ""; }
};

class NoUrls final : public UrlOpener {
 public:
  void open(const std::string&) override {}
};

}  // namespace ostrel
