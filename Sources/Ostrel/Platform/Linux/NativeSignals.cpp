#include "Platform/Linux/NativeSignals.h"

#include <csignal>

namespace ostrel {

namespace {

// A pid of 0 or below would mean a whole group of processes.
bool send(std::int32_t pid, int signal) { return pid > 0 && ::kill(pid, signal) == 0; }

}  // namespace

bool NativeSignals::terminate(std::int32_t pid) { return send(pid, SIGTERM); }

bool NativeSignals::kill(std::int32_t pid) { return send(pid, SIGKILL); }

}  // namespace ostrel
