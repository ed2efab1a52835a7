// The link with Herdr: finds its executable, asks for the running sessions and their agents, and keeps that
// picture current. Main thread only; commands and sockets run in the background.
//
// The picture comes from one repeated step, driven by refresh requests: each session's events (collapsed to
// one request in 0.1 seconds) and a heartbeat, slow while event streams stand and fast otherwise. Steps never
// overlap, and requests made during a step collapse to one more. Herdr need not exist: the link is simply off
// then.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "Herdr/HerdrCommand.h"
#include "Platform/Preferences.h"
#include "Runtime/Background.h"
#include "Runtime/Published.h"
#include "Runtime/Task.h"

namespace ostrel {

class HerdrLink {
 public:
  // What the link does outside of itself. `run` and `events` block and are called on background threads.
  struct Doors {
    HerdrCommand::Run run;
    // As `HerdrSocket::events`.
    std::function<void(const std::string& path, std::int64_t protocol, std::span<const std::string> panes,
                       const std::function<void()>& receive, const std::stop_token& stop)>
        events;
    // The installed `herdr`, where there is one.
    std::function<std::optional<std::filesystem::path>()> find;
    std::function<bool(const std::filesystem::path&)> isExecutable;
  };

  // `pool` runs the commands. The settings are the preferences "herdrExecutable" and "herdrSessionOverride".
  HerdrLink(MainLoop& loop, BackgroundPool& pool, Preferences& preferences, Doors doors);
  HerdrLink(const HerdrLink&) = delete;
  HerdrLink& operator=(const HerdrLink&) = delete;

  // Takes the settings anew from the preferences, as they stand after a migration.
  void readSettings();
  // Attaches to whatever sessions run, tearing down an earlier link first.
  void connect();
  // Ends the link. `forget` also drops the wish to reconnect at the next launch.
  void disconnect(bool forget);
  // Asks for a step soon: 0.1 seconds after the first request of a burst. Without effect while the link is
  // off.
  void requestRefresh();

  // The person's choice, else what is installed; a stale choice is not replaced by a search, so that it fails
  // visibly.
  std::optional<std::filesystem::path> resolveExecutable() const;
  // One line for the person: "Connected · 2 sessions" and the like.
  std::string status() const;

  Published<std::string>& executablePath() { return executablePath_; }  // empty: search
  Published<std::string>& sessionName() { return sessionName_; }        // empty: all sessions
  Published<bool>& active() { return active_; }                         // a link is wanted and its tasks run
  Published<bool>& connecting() { return connecting_; }                 // no step has finished yet
  Published<bool>& connected() { return connected_; }                   // a session answered in the last step
  const Published<bool>& connected() const { return connected_; }
  Published<std::optional<std::string>>& error() { return error_; }
  Published<int>& sessionCount() { return sessionCount_; }             // sessions that answered
  Published<bool>& inventoryComplete() { return inventoryComplete_; }  // all running sessions answered
  Published<std::vector<HerdrAgent>>& agents() { return agents_; }
  const Published<std::vector<HerdrAgent>>& agents() const { return agents_; }
  // Changes after each finished step, successful or not.
  Published<std::uint64_t>& steps() { return steps_; }

  // The socket of a session of the last step that tells of one.
  std::optional<std::string> socketPath(const std::string& session) const;

  // Called at `connect`, for what else is to be asked of the executable.
  std::function<void()> onConnect;

 private:
  struct Stream {
    std::string key;  // empty once the stream has failed: the next step opens a new one
    std::unique_ptr<TaskScope> task;
  };

  Task<void> poll(std::filesystem::path executable, std::string filter);
  Task<void> step(std::filesystem::path executable, std::string filter);
  Task<void> beat();
  Task<void> debounce();
  Task<void> stream(std::string session, std::string path, std::vector<std::string> panes);
  Task<std::string> command(std::filesystem::path executable, std::vector<std::string> arguments);
  void updateEventStreams();
  void stepFailed(const std::string& message);

  MainLoop& loop_;
  BackgroundPool& pool_;
  Preferences& preferences_;
  Doors doors_;
  // Each event stream blocks a thread for as long as its session lives.
  BackgroundPool streamPool_;

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

  std::int64_t protocol_ = 0;
  WakeFlag refresh_;
  bool refreshPending_ = false;                     // the debounce runs
  std::map<std::string, std::string> socketPaths_;  // by session
  std::map<std::string, Stream> streams_;
  // Tells events that arrive on their thread whether the link that asked for them still stands.
  std::shared_ptr<bool> generation_;
  TaskScope heartbeat_;
  TaskScope polling_;
};

}  // namespace ostrel
