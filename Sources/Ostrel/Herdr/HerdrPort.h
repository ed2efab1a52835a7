// The Herdr that is installed here and its running sessions, as one port: its command line and its sockets.
// `InstalledHerdr` is the real one; tests make up their own.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "Runtime/Json.h"
#include "Runtime/MainLoop.h"
#include "Runtime/Task.h"

namespace ostrel {

class HerdrPort {
 public:
  HerdrPort() = default;
  HerdrPort(const HerdrPort&) = delete;
  HerdrPort& operator=(const HerdrPort&) = delete;
  virtual ~HerdrPort() = default;

  // The three below block and are called on background threads, several at once.
  // The installed program, as a search finds it; nothing where there is none.
  virtual std::optional<std::filesystem::path> find() = 0;
  virtual bool isExecutable(const std::filesystem::path& path) = 0;
  // As `HerdrCommand::run`.
  virtual std::string run(const std::filesystem::path& executable, const std::vector<std::string>& arguments,
                          Duration limit, std::stop_token stop) = 0;

  // The rest belongs to the main thread and never blocks it.
  // As `HerdrSocket::request`.
  virtual Task<Json> request(std::string path, std::string method, Json params) = 0;
  // As `HerdrSocket::events`.
  virtual Task<void> events(std::string path, Json subscriptions, std::function<void()> subscribed,
                            std::function<void(const Json& event)> receive) = 0;
  // As `HerdrSocket::read`.
  virtual Task<std::string> read(std::string path, std::string pane, std::string source) = 0;
};

}  // namespace ostrel
