#include "Platform/Linux/TerminationSignals.h"

#include <cerrno>
#include <csignal>
#include <sys/signalfd.h>
#include <unistd.h>

#include "Runtime/Failure.h"

namespace ostrel {

TerminationSignals::TerminationSignals() {
  sigset_t signals;
  ::sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    // One that is ignored from the start (nohup, a shell's background job) stays so.
    struct sigaction inherited;
    const bool ignored = ::sigaction(signal, nullptr, &inherited) == 0 && inherited.sa_handler == SIG_IGN;
    if (!ignored) ::sigaddset(&signals, signal);
  }
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  fd_.reset(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!fd_) throw Failure::ofErrno("Could not receive signals", errno);
}

Watch TerminationSignals::watch(MainLoop& loop, std::function<void()> asked) {
  return loop.watch(fd_.get(), {.read = true}, [fd = fd_.get(), asked = std::move(asked)](Interest) {
    signalfd_siginfo info;
    if (::read(fd, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) asked();
  });
}

}  // namespace ostrel
