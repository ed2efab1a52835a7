// A Herdr of a test's own: a state folder, a `herdr` for its PATH, and the means to make happen in it what a
// test needs. The sessions and the programs in their panes are real processes and end with this object, or
// with the test program. Every call blocks for as long as the command takes that it runs.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

#include "Runtime/Json.h"
#include "Support/ChildProcess.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {

class HerdrStandIn {
 public:
  struct Pane {
    std::string id, terminal;
  };
  // What `report` changes; empty members stay as they are.
  struct Report {
    std::string agent{}, status{}, title{}, reference{}, referenceKind{};
  };

  HerdrStandIn();
  HerdrStandIn(const HerdrStandIn&) = delete;
  HerdrStandIn& operator=(const HerdrStandIn&) = delete;
  ~HerdrStandIn();

  // For a child, complete: PATH begins with `bin`, HOME is a folder of its own.
  const std::map<std::string, std::string>& environment() const { return environment_; }
  std::filesystem::path bin() const { return folder_.path() / "bin"; }
  std::string executable() const { return (bin() / "herdr").string(); }
  std::filesystem::path home() const { return folder_.path() / "home"; }
  // The path of a local session's socket, whether it runs or not.
  std::string socket(const std::string& session) const;

  void start(const std::string& session);
  void stop(const std::string& session);
  // Opens a pane that runs `command` in `cwd`.
  Pane open(const std::string& session, const std::vector<std::string>& command,
            const std::string& cwd = "/");
  void report(const std::string& session, const Pane& pane, const Report& report);
  // Gives the pane another terminal, as when it was taken over; updates `pane`.
  void move(const std::string& session, Pane& pane);

  // The server hands its panes over to a new one, as at an update.
  void handOff(const std::string& session);
  // The process that serves a running session.
  pid_t server(const std::string& session) const;

  // From now on the command or method named by "on" goes wrong as the other members say: those of
  // `standin::Fault`, and "session". It replaces an earlier fault.
  void setFault(const Json& fault) { setFaults(Json::array({fault})); }
  // Several, the first that fits counting; none for a Herdr without faults.
  void setFaults(const Json& list);
  void setIntegrations(const Json& states);

  // Any command, without or with a session.
  ChildProcess::Finished run(const std::vector<std::string>& arguments) const;
  ChildProcess::Finished run(const std::string& session, std::vector<std::string> arguments) const;
  // Every command run so far and every public request served ("socket SESSION METHOD"), in order.
  std::vector<std::string> commands() const;
  // How many processes of Herdr's command line were started so far.
  std::size_t processes() const;

 private:
  Json result(const std::string& session, const std::vector<std::string>& arguments) const;

  TemporaryFolder folder_;
  std::map<std::string, std::string> environment_;
};

}  // namespace ostrel
