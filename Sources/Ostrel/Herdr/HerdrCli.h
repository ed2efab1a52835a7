// The one way to Herdr's command line for tasks of the main thread. Main thread only.
//
// Commands run where nothing else does: one that hangs holds up no scan, transcript or output.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "Herdr/HerdrCommand.h"
#include "Herdr/HerdrPort.h"
#include "Runtime/Background.h"
#include "Runtime/Task.h"

namespace ostrel {

class HerdrCli {
 public:
  // `commands` has threads for Herdr's commands alone; both outlive this.
  HerdrCli(HerdrPort& port, Background& commands) : port_(port), commands_(commands) {}

  // What the command printed, within `HerdrCommand::kUsualTime`. Throws as `HerdrCommand::run` does.
  Task<std::string> run(std::filesystem::path executable, std::vector<std::string> arguments) {
    co_return co_await commands_.run([&port = port_, executable = std::move(executable),
                                      arguments = std::move(arguments)](std::stop_token stop) {
      return port.run(executable, arguments, HerdrCommand::kUsualTime, std::move(stop));
    });
  }
  // The program to run: what was chosen, else (an empty choice) what is installed. A stale choice is not
  // replaced by a search, so that it fails visibly.
  Task<std::optional<std::filesystem::path>> executable(std::string chosen) {
    co_return co_await commands_.run([&port = port_, chosen = std::move(chosen)](
                                         const std::stop_token&) -> std::optional<std::filesystem::path> {
      if (chosen.empty()) return port.find();
      return port.isExecutable(chosen) ? std::optional<std::filesystem::path>(chosen) : std::nullopt;
    });
  }

 private:
  HerdrPort& port_;
  Background& commands_;
};

}  // namespace ostrel
