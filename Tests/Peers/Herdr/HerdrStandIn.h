// A Herdr of a test's own: a state folder, a `herdr` for its PATH, and the means to make happen in it what a
// test needs. The sessions and the programs in their panes are real processes and end with this object, or
// with the test program. Every call blocks for as long as the command takes that it runs.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "Runtime/Json.h"
#include "Support/ChildProcess.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {

class HerdrStandIn {
 public:
  // Where a command is aimed: a local session, or a saved machine's.
  struct Place {
    std::vector<std::string> prefix;
    Place(const char* session) : prefix{"--session", session} {}
    Place(const std::string& session) : prefix{"--session", session} {}
    Place(const HerdrMachine& machine) : prefix{"--machine", machine.id} {}
  };
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

  void start(const Place& place);
  void stop(const Place& place);
  // Opens a pane that runs `command` in `cwd`.
  Pane open(const Place& place, const std::vector<std::string>& command, const std::string& cwd = "/");
  void report(const Place& place, const Pane& pane, const Report& report);
  // Gives the pane another terminal, as when it was taken over; updates `pane`.
  void move(const Place& place, Pane& pane);

  // From now on the command or method named by "on" goes wrong as the other members say: those of
  // `standin::Fault`, and "session". It replaces an earlier fault.
  void setFault(const Json& fault, const Place& place = "") { setFaults(Json::array({fault}), place); }
  // Several, the first that fits counting; none for a Herdr without faults.
  void setFaults(const Json& list, const Place& place = "");
  // A machine has a state folder of its own; it refuses commands unless it is enabled.
  void setMachines(const std::vector<HerdrMachine>& machines);
  void setIntegrations(const Json& states);

  // Any command: Herdr's own with a place's prefix, for instance.
  ChildProcess::Finished run(const std::vector<std::string>& arguments) const;
  ChildProcess::Finished run(const Place& place, std::vector<std::string> arguments) const;
  // Every command run so far and every public request served ("socket SESSION METHOD"), in order.
  std::vector<std::string> commands() const;

 private:
  Json result(const Place& place, std::vector<std::string> arguments) const;

  TemporaryFolder folder_;
  std::map<std::string, std::string> environment_;
};

}  // namespace ostrel
