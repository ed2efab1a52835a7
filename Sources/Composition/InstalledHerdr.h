// The Herdr of this computer, behind its port: the command on the search path, and the sockets of its
// sessions.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "Discovery/CommandLineTools.h"
#include "Herdr/HerdrPort.h"

namespace ostrel {

class InstalledHerdr final : public HerdrPort {
 public:
  // `tools` outlives this.
  explicit InstalledHerdr(const CommandLineTools& tools)
      : tools_(tools), environment_(tools.environment(false)) {}

  std::optional<std::filesystem::path> find() override;
  bool isExecutable(const std::filesystem::path& path) override;
  std::string run(const std::filesystem::path& executable, const std::vector<std::string>& arguments,
                  Duration limit, std::stop_token stop) override;
  Task<Json> request(std::string path, std::string method, Json params) override;
  Task<void> events(std::string path, Json subscriptions, std::function<void()> subscribed,
                    std::function<void(const Json& event)> receive) override;
  Task<std::string> read(std::string path, std::string pane, std::string source) override;

 private:
  const CommandLineTools& tools_;
  const std::map<std::string, std::string> environment_;
};

}  // namespace ostrel
