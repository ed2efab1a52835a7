// The desktop program: resident until it is asked to end.
#include <csignal>
#include <cstdio>
#include <exception>
#include <string_view>
#include <unistd.h>

#include <fmt/format.h>

#include "App/OtherCopies.h"
#include "App/ResidentProgram.h"
#include "Composition/LinuxCore.h"
#include "Platform/Linux/NativeSignals.h"
#include "Platform/Linux/TerminationSignals.h"
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

void run(const Environment& environment) {
  TerminationSignals signals;
  LinuxCore core(environment, complain, announce);
  NativeSignals otherProcesses;
  OtherCopies copies(core.processes(), otherProcesses, core.loop(), ::getpid());
  TaskScope tasks(core.loop());
  ResidentProgram program(core.preferences(), copies, environment.arguments,
                          {.startDiscovery = [&] { core.client().restoreConnection(); },
                           .checkDiscovery = [&] { tasks.start(checkDiscovery(core)); },
                           .stopDiscovery = [&] { core.client().stop(); }});

  const Watch asked = signals.watch(core.loop(), [&] { core.loop().stop(); });
  if (program.launch()) core.loop().run();
  program.terminate();
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  try {
    run(Environment::ofProcess(argc, argv));
    return 0;
  } catch (const std::exception& failure) {
    complain(failure.what());
    return 1;
  }
}
