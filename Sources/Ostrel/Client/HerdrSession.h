// One running session of Herdr: its agents, kept current by its events. Main thread only; its socket is
// served by tasks of the main loop, without a thread.
//
// Two event streams stand for as long as the session runs: one for the plain types, and one for the status of
// the panes that have agents, opened anew when those change. What they tell leads to a look at the list: over
// the socket where it speaks our protocol, otherwise by a command. A burst of events costs two looks a second
// at most, the first 0.1 seconds after the first event. A session that does not answer keeps its agents and
// says why.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "Herdr/HerdrCli.h"
#include "Herdr/HerdrPort.h"
#include "Runtime/Json.h"
#include "Runtime/Task.h"

namespace ostrel {

class HerdrSession {
 public:
  // The two ways to its server.
  struct Server {
    HerdrPort& port;
    HerdrCli& cli;
    std::filesystem::path executable;
  };
  // `protocol`: the version that its server is expected to speak. `changed` is called when anything of the
  // below has changed; it must not destroy the session.
  HerdrSession(MainLoop& loop, Server server, std::string name, std::int64_t protocol,
               std::function<void()> changed);
  HerdrSession(const HerdrSession&) = delete;
  HerdrSession& operator=(const HerdrSession&) = delete;

  // Where it listens; empty: commands only. Another path than before ends the streams.
  void setSocket(const std::string& path);
  void setProtocol(std::int64_t protocol) { protocol_ = protocol; }
  // Looks at the list now, or behind the look that is under way.
  void look();
  // Looks soon.
  void refresh();
  // Ends everything that is under way, for good.
  void end();

  const std::string& name() const { return name_; }
  const std::string& socket() const { return socket_; }
  const std::vector<HerdrAgent>& agents() const { return agents_; }
  // A look has ended, well or not.
  bool looked() const { return looked_; }
  // Why the last look failed.
  const std::optional<std::string>& error() const { return error_; }
  // The same in Herdr's own words, where those are the reason.
  const std::string& ownWords() const { return ownWords_; }
  // Its server holds a connection to us.
  bool hears() const { return plainStands_; }
  // Its events reach us, and it answered last: it needs no frequent looks.
  bool streams() const;
  // Its server speaks another protocol than expected.
  bool speaksOther() const { return speaksOther_; }

 private:
  Task<void> follow();
  Task<void> wake(Duration delay);
  Task<std::vector<HerdrAgent>> list();
  Task<bool> speaks();
  Task<void> plainStream();
  Task<void> statusStream(std::vector<std::string> panes);
  void openStreams();
  void received(const Json& event);

  MainLoop& loop_;
  const Server server_;
  const std::string name_;
  std::int64_t protocol_;
  const std::function<void()> changed_;
  std::string socket_;
  std::vector<HerdrAgent> agents_;
  bool looked_ = false;
  std::optional<std::string> error_;
  std::string ownWords_;
  std::optional<bool> speaks_;  // asked anew when a stream has broken
  bool speaksOther_ = false;
  WakeFlag wanted_;
  bool waking_ = false;
  TimePoint lastLook_;
  bool plainStands_ = false;
  std::optional<std::vector<std::string>> statusPanes_;  // what the stream was opened for; none: it failed
  bool statusStands_ = false;
  int statusFailures_ = 0;  // in a row
  TaskScope looking_;
  TaskScope soon_;
  TaskScope plain_;
  TaskScope status_;
};

}  // namespace ostrel
