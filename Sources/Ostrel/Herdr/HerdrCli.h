// The one way to Herdr's command line for tasks of the main thread. Main thread only.
//
// Commands run on threads of their own: one that hangs holds up no scan, transcript or output. The threads
// end soon after the last command.
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
  explicit HerdrCli(HerdrPort& port) : port_(port) {}

  // What the command printed, within `HerdrCommand::kUsualTime`. Throws as `HerdrCommand::run` does.
  Task<std::string> run(std::filesystem::path executable, std::vector<std::string> arguments) {
    co_return co_await pool_.run([&port = port_, executable = std::move(executable),
                                  arguments = std::move(arguments)](std::stop_token stop) {
      return port.run(executable, arguments, HerdrCommand::kUsualTime, std::move(stop));
    });
  }
  // The program to run: what was chosen, else (an empty choice) what is installed. A stale choice is not
  // replaced by a search, so that it fails visibly.
  Task<std::optional<std::filesystem::path>> executable(std::string chosen) {
    co_return co_await pool_.run([&port = port_, chosen = std::move(chosen)](
                                     const std::stop_token&) -> std::optional<std::filesystem::path> {
      if (chosen.empty()) return port.find();
      return port.isExecutable(chosen) ? std::optional<std::filesystem::path>(chosen) : std::nullopt;
    });
  }
  // Threads that exist now.
  unsigned threads() const { return pool_.threads(); }

 private:
  static constexpr unsigned kThreads = 4;

  HerdrPort& port_;
  BackgroundPool pool_{kThreads, std::chrono::seconds(1)};
};

}  // namespace ostrel
