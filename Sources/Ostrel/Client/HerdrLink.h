// The link with Herdr: finds its executable, asks for the running sessions, and keeps each of them and the
// picture of all of them current. Main thread only; commands run in the background, sockets on the main loop.
//
// Which sessions run is asked by one repeated step, at a slow beat while the events of every running session
// reach us and at a fast one otherwise. Steps never overlap. Each session is looked at on its own, beside the
// others, and published as it answers (`HerdrSession`): one that is silent delays nobody. Herdr need not
// exist: the link is simply off then.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "Client/HerdrSession.h"
#include "Herdr/HerdrCli.h"
#include "Platform/Preferences.h"
#include "Runtime/Published.h"
#include "Runtime/Task.h"

namespace ostrel {

class HerdrLink {
 public:
  // The settings are the preferences "herdrExecutable" and "herdrSessionOverride".
  HerdrLink(MainLoop& loop, Preferences& preferences, HerdrPort& port, Background& commands);
  HerdrLink(const HerdrLink&) = delete;
  HerdrLink& operator=(const HerdrLink&) = delete;

  // Takes the settings anew from the preferences, as they stand after a migration.
  void readSettings();
  // Attaches to whatever sessions run, tearing down an earlier link first.
  void connect() { start(false); }
  // The same, but where no Herdr is installed the link is simply off, without a word.
  void connectWhereInstalled() { start(true); }
  // Ends the link. `forget` also drops the wish to reconnect at the next launch.
  void disconnect(bool forget);
  // Looks at a session's agents soon: 0.1 seconds after the first request of a burst. Without effect where it
  // is not known, as while the link is off.
  void refresh(const std::string& session);

  // The program that the link uses, or would use: the person's choice, else what is installed. Looks on the
  // disk in the background where that is not known.
  Task<std::optional<std::filesystem::path>> executable();
  // One line for the person: "Connected · 2 sessions" and the like.
  std::string status() const;

  Published<std::string>& executablePath() { return executablePath_; }  // empty: search
  Published<std::string>& sessionName() { return sessionName_; }        // empty: all sessions
  Published<bool>& active() { return active_; }                         // a link is wanted and its tasks run
  Published<bool>& connecting() { return connecting_; }  // not every session has answered or failed yet
  Published<bool>& connected() { return connected_; }    // a session answered when it was last asked
  const Published<bool>& connected() const { return connected_; }
  Published<std::optional<std::string>>& error() { return error_; }
  Published<int>& sessionCount() { return sessionCount_; }             // sessions that answered
  Published<bool>& inventoryComplete() { return inventoryComplete_; }  // all running sessions answered
  Published<std::vector<HerdrAgent>>& agents() { return agents_; }
  const Published<std::vector<HerdrAgent>>& agents() const { return agents_; }
  // Changes with every answer of a session and with every failure.
  Published<std::uint64_t>& steps() { return steps_; }

  // The command line of Herdr, for what else is to be run.
  HerdrCli& cli() { return cli_; }
  // What the pane of `agent` shows now, without escape sequences: over its session's socket where there is
  // one, otherwise by a command.
  Task<std::string> screen(HerdrAgent agent);
  bool hasSocket(const HerdrAgent& agent) const { return socketOf(agent).has_value(); }

  // Called when a link begins, for what else is to be asked of the executable.
  std::function<void()> onConnect;

 private:
  std::optional<std::string> socketOf(const HerdrAgent& agent) const;
  void start(bool whereInstalled);
  Task<void> run(std::string filter, bool whereInstalled);
  Task<void> poll(std::filesystem::path executable, std::string filter);
  void giveUp(std::optional<std::string> why);
  Task<void> step(std::filesystem::path executable, std::string filter);
  Task<void> beat();
  void setSessions(const std::map<std::string, std::string>& sockets,
                   const std::filesystem::path& executable);
  void listFailed(const std::string& message);
  void publish();
  std::optional<std::string> problem() const;
  bool everySessionStreams() const;
  void dropSessions();

  MainLoop& loop_;
  Preferences& preferences_;
  HerdrPort& port_;
  HerdrCli cli_;
  std::optional<std::filesystem::path> executable_;  // in use; none while the link is off

  Published<std::string> executablePath_;
  Published<std::string> sessionName_;
  Published<bool> active_{false};
  Published<bool> connecting_{false};
  Published<bool> connected_{false};
  Published<std::optional<std::string>> error_;
  Published<int> sessionCount_{0};
  Published<bool> inventoryComplete_{false};
  Published<std::vector<HerdrAgent>> agents_;
  Published<std::uint64_t> steps_{0};

  using Sessions = std::map<std::string, std::unique_ptr<HerdrSession>>;  // by name
  std::int64_t protocol_ = 0;
  Sessions sessions_;
  std::vector<std::unique_ptr<HerdrSession>> ended_;  // of an earlier link
  bool filtered_ = false;                             // other sessions run too
  std::optional<std::string> listError_;              // why it is not known which sessions run
  WakeFlag wanted_;                                   // a step
  WakeFlag pace_;                                     // the beat may have changed
  TimePoint lastStep_;
  TaskScope heartbeat_;
  TaskScope polling_;
};

}  // namespace ostrel
