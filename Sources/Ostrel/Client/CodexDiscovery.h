// Keeps the list of loaded Codex conversations. While the app server's socket is there, a connection follows
// it in the background and every change comes at once; while it is not, its folder is watched and nothing
// runs. Main thread only.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "Codex/CodexLive.h"
#include "Platform/FileWatcher.h"
#include "Platform/PathWatch.h"
#include "Runtime/Background.h"
#include "Runtime/Published.h"
#include "Runtime/Task.h"

namespace ostrel {

class CodexDiscovery {
 public:
  // As `CodexLive::follow`: blocks for as long as there is a connection, and tells the list on its thread;
  // throws `Failure` or `Cancelled`. Returns without having told anything where there is no server.
  using Follow = std::function<void(const CodexLive::Told& told, std::stop_token stop)>;
  // Told with each list which threads are to be joined: those that work or wait. An idle one asks nothing,
  // and joined it would stay loaded after its terminal has gone.
  using Watch = std::function<void(const std::set<std::string>& threads)>;

  struct Server {
    FileWatcher& files;
    std::string socket;
    Follow follow;
  };
  // `pool` has a thread for this alone. `agents` is where the list is published, emptied when the connection
  // ends; it outlives the discovery.
  CodexDiscovery(MainLoop& loop, Background& pool, Server server, Published<std::vector<HerdrAgent>>& agents,
                 Watch watch);

  // Starts following; does nothing when started before. Ends with the object.
  void start();

  // What to tell the person when a server that should be there can't be asked; nothing without a server.
  Published<std::optional<std::string>>& error() { return error_; }
  // Lists and ends of connections so far. Changes after everything else.
  Published<std::uint64_t>& passes() { return passes_; }

 private:
  // The last list on its way to the main thread: however fast lists come, one waits.
  struct Mailbox;

  Task<void> run();
  CodexLive::Told told();
  void deliver(std::vector<HerdrAgent> agents, std::optional<std::string> problem);
  Duration rest();

  MainLoop& loop_;
  Background& pool_;
  Server server_;
  Published<std::vector<HerdrAgent>>& agents_;
  Watch watch_;
  Published<std::optional<std::string>> error_;
  Published<std::uint64_t> passes_;
  std::shared_ptr<Mailbox> mailbox_;
  std::optional<PathWatch> socketWatch_;
  std::optional<PathWatch> targetWatch_;  // of what the socket's name is a link to
  Duration retry_{};                      // the next rest while the server does not answer
  WakeFlag wake_;
  bool started_ = false;
  TaskScope tasks_;
};

}  // namespace ostrel
