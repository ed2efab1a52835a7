// Starts a program that is to outlive this one, such as a terminal server. Main thread only.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace ostrel {

// A program that was started. It goes on when this object goes.
class LaunchedServer {
 public:
  LaunchedServer() = default;
  LaunchedServer(const LaunchedServer&) = delete;
  LaunchedServer& operator=(const LaunchedServer&) = delete;
  virtual ~LaunchedServer() = default;
  virtual bool running() = 0;
};

class ServerLauncher {
 public:
  ServerLauncher() = default;
  ServerLauncher(const ServerLauncher&) = delete;
  ServerLauncher& operator=(const ServerLauncher&) = delete;
  virtual ~ServerLauncher() = default;

  // With nothing on its standard streams, in a session of its own, so that the end of this program's terminal
  // or session does not reach it. Throws `Failure` when it can't be started.
  virtual std::unique_ptr<LaunchedServer> launch(const std::string& executable,
                                                 const std::vector<std::string>& arguments,
                                                 const std::map<std::string, std::string>& environment) = 0;
};

}  // namespace ostrel
