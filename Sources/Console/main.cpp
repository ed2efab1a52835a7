// ostrelctl: the core with a console face.
#include <cstdio>
#include <span>
#include <stop_token>
#include <unistd.h>

#include <fmt/format.h>

#include "App/OstrelSetting.h"
#include "Composition/LinuxCore.h"
#include "HookProgram.h"
#include "LineInput.h"
#include "ListProgram.h"
#include "Options.h"
#include "Platform/Linux/TerminationSignals.h"
#include "Runtime/Spawn.h"
#include "ServeProgram.h"
#include "StandardOutput.h"

namespace {

using namespace ostrel;

bool writeOutput(std::string_view bytes, const std::stop_token& stop = {}) {
  return console::writeAll(STDOUT_FILENO, bytes, stop);
}

void complain(std::string_view line) { fmt::print(stderr, "ostrelctl: {}\n", line); }

int runList(const Environment& environment, const console::Options& options) {
  LinuxCore core(environment, complain, {}, LinuxCore::Face::looks);
  core.preferences().migrate();
  core.preferences().shared().registerDefaults(OstrelSetting::defaults());
  int status = 0;
  console::ListProgram::Output output{writeOutput, complain,
                                      [&](int ended) {
                                        status = ended;
                                        core.loop().stop();
                                      },
                                      ::isatty(STDOUT_FILENO) == 1};
  // A reader that does not read holds nobody else up.
  BackgroundPool writer(1);
  console::ListProgram program(
      {core.loop(), core.pool(), writer, core.client(), core.transcripts(), core.preferences().shared()},
      options, std::move(output));
  program.start();
  core.loop().run();
  return status;
}

int runServe(const Environment& environment) {
  TerminationSignals signals;
  LinuxCore core(environment, complain, {});
  core.preferences().migrate();
  core.preferences().shared().registerDefaults(OstrelSetting::defaults());
  BackgroundPool writer(1);
  console::ServeProgram program({core.loop(), writer, core.client(), core.preferences().shared()},
                                {writeOutput, [&] { core.loop().stop(); }});
  const Watch asked = signals.watch(core.loop(), [&] { core.loop().stop(); });
  program.start();
  console::LineInput input(
      core.loop(), STDIN_FILENO, [&](const std::string& line) { program.line(line); },
      [&] { program.inputEnded(); });
  core.loop().run();
  core.client().stop();
  return 0;
}

int runHook(const Environment& environment, console::Options::Hook action) {
  LinuxCore core(environment, complain, {}, LinuxCore::Face::looks);
  core.preferences().migrate();
  return console::runHookCommand(core.claudePermissions(), action,
                                 {[](std::string_view text) { writeOutput(text); }, complain});
}

}  // namespace

int main(int argc, char** argv) {
  using Command = console::Options::Command;
  resetSignals();
  const Environment environment = Environment::ofProcess(argc, argv);
  const auto options = console::parseOptions(std::span(environment.arguments).subspan(argc > 0 ? 1 : 0));
  if (!options) {
    complain(options.error());
    fmt::print(stderr, "{}", console::kUsage);
    return 2;
  }
  switch (options->command) {
    case Command::help:
      return writeOutput(console::kUsage) ? 0 : 1;
    case Command::version:
      return writeOutput("ostrelctl " OSTREL_VERSION "\n") ? 0 : 1;
    case Command::agents:
    case Command::watch:
    case Command::serve:
    case Command::hook:
      break;
  }
  try {
    if (options->command == Command::serve) return runServe(environment);
    if (options->command == Command::hook) return runHook(environment, options->hook);
    return runList(environment, *options);
  } catch (const std::exception& failure) {
    complain(failure.what());
    return 1;
  }
}
