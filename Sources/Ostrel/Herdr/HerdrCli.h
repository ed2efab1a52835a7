// The one way to Herdr's command line for tasks of the main thread. Main thread only.
//
// Commands run on threads of their own: one that hangs holds up no scan, transcript or output. The threads
// end soon after the last command.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "Herdr/HerdrCommand.h"
#include "Runtime/Background.h"
#include "Runtime/Task.h"

namespace ostrel {

class HerdrCli {
 public:
  explicit HerdrCli(HerdrCommand::Run run) : run_(std::move(run)) {}

  // What the command printed, within `HerdrCommand::kUsualTime`. Throws as `HerdrCommand::run` does.
  Task<std::string> run(std::filesystem::path executable, std::vector<std::string> arguments) {
    co_return co_await pool_.run([run = run_, executable = std::move(executable),
                                  arguments = std::move(arguments)](std::stop_token stop) {
      return run(executable, arguments, HerdrCommand::kUsualTime, std::move(stop));
    });
  }
  // Threads that exist now.
  unsigned threads() const { return pool_.threads(); }

 private:
  static constexpr unsigned kThreads = 4;

  HerdrCommand::Run run_;
  BackgroundPool pool_{kThreads, std::chrono::seconds(1)};
};

}  // namespace ostrel
