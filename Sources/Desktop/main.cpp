// The desktop program: resident until it is asked to end. With a display it has its windows at the edge of
// the screen; without one it goes on all the same.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <string_view>
#include <unistd.h>

#include <fmt/format.h>

#include "App/BundleInfo.h"
#include "App/Launch.h"
#include "App/OtherCopies.h"
#include "App/ResidentProgram.h"
#include "App/RunningCopy.h"
#include "Composition/LinuxCore.h"
#include "DesktopLibrary.h"
#include "Platform/Linux/DesktopOpeners.h"
#include "Platform/Linux/NativeSignals.h"
#include "Platform/Linux/TerminationSignals.h"
#include "Runtime/Spawn.h"
#include "Runtime/Task.h"

namespace {

using namespace ostrel;

void complain(std::string_view line) { fmt::print(stderr, "Ostrel: {}\n", line); }

void announce(std::string_view line) {
  fmt::print("{}\n", line);
  std::fflush(stdout);
}

// One scan, for its line.
Task<void> checkDiscovery(LinuxCore& core) {
  try {
    co_await core.pool().run([&agents = core.externalAgents()](std::stop_token stop) { agents.scan(stop); });
  } catch (const Failure& failure) {
    complain(failure.message());
  }
}

std::filesystem::path ownPath(LinuxCore& core) { return core.processes().executablePath(::getpid()); }

// The windows; none, after a line that says why, where they can't be had.
std::unique_ptr<Desktop> openDesktop(LinuxCore& core, TerminalOpener& terminals) {
  const bool fixture = core.preferences().isFixture();
  try {
    if (!DesktopLibrary::hasDisplay(core.environment())) throw Failure("there is no display");
    const DesktopModule& module = DesktopLibrary::beside(ownPath(core));
    auto desktop = module.open({.loop = core.loop(),
                                .pool = core.pool(),
                                .toolPool = core.toolPool(),
                                .client = core.client(),
                                .preferences = core.preferences().shared(),
                                .tools = core.tools(),
                                .processes = core.processes(),
                                .environment = core.environment(),
                                .urls = core.urls(),
                                .terminals = terminals,
                                .fixture = fixture,
                                .installed = BundleInfo::ofProgram(ownPath(core)).identifier().has_value(),
                                .complain = complain});
    desktop->makeWindows();
    return desktop;
  } catch (const Failure& failure) {
    // Fixture runs are for the logic; many of them run where no window is expected.
    if (!fixture) complain(fmt::format("no windows: {}", failure.message()));
    return nullptr;
  }
}

bool snapshot(LinuxCore& core) {
  const auto& arguments = core.environment().arguments;
  const auto found = std::ranges::find(arguments, launch::kSnapshot);
  if (found == arguments.end() || found + 1 == arguments.end()) return false;
  DesktopLibrary::beside(ownPath(core)).snapshot(*(found + 1), core.loop(), core.preferences().shared());
  return true;
}

void run(const Environment& environment) {
  TerminationSignals signals;
  LinuxCore core(environment, complain, announce);
  NativeSignals otherProcesses;
  OtherCopies copies(core.processes(), otherProcesses, core.loop(), ::getpid());
  TaskScope tasks(core.loop());
  if (snapshot(core)) return;
  DesktopTerminals terminals({core.environment(), core.tools().searchPath()},
                             DesktopHostApplications::dataFolders(core.environment()));
  std::unique_ptr<Desktop> desktop;
  const auto meeting = RunningCopy::socketPath(environment);
  const Json identity = RunningCopy::identity(
      ownPath(core), BundleInfo::ofProgram(ownPath(core)).version().value_or("development"), environment);
  RunningCopy running(core.loop(), meeting, identity, [&] { desktop->showPanel(); });
  ResidentProgram program(core.preferences(), copies, environment.arguments,
                          {.showRunning = [&] { return RunningCopy::ask(meeting, identity); },
                           .makeWindows = [&] { desktop = openDesktop(core, terminals); },
                           .showWindows =
                               [&] {
                                 if (desktop) desktop->showWindows();
                               },
                           .startDiscovery =
                               [&] {
                                 if (!environment.hasArgument(launch::kPreviewAgents))
                                   core.client().restoreConnection();
                               },
                           .checkDiscovery = [&] { tasks.start(checkDiscovery(core)); },
                           .stopDiscovery = [&] { core.client().stop(); }});

  const Watch asked = signals.watch(core.loop(), [&] {
    if (desktop) desktop->stop();
    core.loop().stop();
  });
  if (program.launch()) {
    if (desktop && !launch::isTestRun(environment.arguments)) running.start();
    if (desktop) {
      desktop->run();
    } else {
      core.loop().run();
    }
  }
  program.terminate();
}

}  // namespace

int main(int argc, char** argv) {
  resetSignals();
  try {
    run(Environment::ofProcess(argc, argv));
    return 0;
  } catch (const std::exception& failure) {
    complain(failure.what());
    return 1;
  }
}
