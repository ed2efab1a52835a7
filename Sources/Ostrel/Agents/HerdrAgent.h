// The one value record of an agent, whatever reported it: a Herdr pane, a process, a Codex thread, a saved
// machine.
//
// Everything that the product shows or acts on is a `HerdrAgent`. Records are rebuilt at every scan and
// compared by value; only `id()` carries identity across rebuilds. They are immutable values and may cross
// threads.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Agents/AgentState.h"
#include "Platform/Preferences.h"
#include "Runtime/MainLoop.h"

namespace ostrel {

// What a person needs to know of an agent at a glance, in order of severity.
enum class AgentLight { needsYou, working, done, idle };
std::string_view lightName(AgentLight light);

// The providers with which the product holds a connection of its own.
enum class AgentProvider { codex, claude };

// A provider's sign-in state.
enum class ConnectionState { checking, missing, disconnected, subscription, otherAccount };

// A saved SSH machine.
struct HerdrMachine {
  std::string id;
  std::string label;
  std::string target;  // what ssh is told to connect to
  std::string session;
  bool enabled = true;
  bool operator==(const HerdrMachine&) const = default;
};

// One row of the process table, for agents found outside Herdr.
struct ExternalProcess {
  std::int64_t pid = 0;
  std::int64_t parent = 0;
  std::string started;                 // five words joined by single blanks: "Sun Nov 22 21:51:10 2026"
  std::string executable;              // a full path or a bare name
  std::string tty;                     // "pts/3"; "??" for none
  std::optional<std::string> hostApp;  // path of the hosting application
  std::optional<std::int64_t> uid;
  std::optional<std::string> hostName{};   // the desktop's name for it, where it has one
  std::optional<std::string> herdrPane{};  // the pane of Herdr's that its environment names

  // The last non-empty component of `executable`; the whole text if it has none.
  std::string_view name() const;
  // The recognised agent name that the process has (a trailing ".exe" ignored), or nothing.
  std::optional<std::string_view> provider() const;
  bool operator==(const ExternalProcess&) const = default;
};

// The executable names that are recognised as agents; exact and case-sensitive.
std::optional<std::string_view> recognizedProvider(std::string_view executableName);

// Where an agent lives. `path` and `name` are set for `app` only.
struct AgentHost {
  enum class Kind { app, herdr, codexApp, none };
  Kind kind = Kind::none;
  std::string path;
  std::string name;
  bool operator==(const AgentHost&) const = default;
};

// What tells which thread of Codex's app server runs in which terminal: each of the two has one.
struct CodexTie {
  std::optional<WallTime> started;  // the process; of a thread, when it was made
  // Of a process: it is connected to the app server. Nothing where the kernel does not tell.
  std::optional<bool> client;
  std::vector<std::string> named;  // threads that the process was told to resume, in lower case
  bool operator==(const CodexTie&) const = default;
};

struct HerdrAgent {
  std::optional<HerdrMachine> machine;             // absent for the local machine
  std::optional<ExternalProcess> externalProcess;  // absent for Herdr panes and Codex threads
  bool acceptsDirectInput = false;                 // its terminal tab is known and reachable
  bool herdrOwned = false;                         // the process runs inside a Herdr pane
  std::string paneID;
  std::string session;                             // "external" and "codex-live" are the product's own words
  std::optional<std::string> transcriptReference;  // absolute path of a transcript, or a conversation id
  std::optional<std::string> transcriptKind;       // "path" or "id"
  std::optional<std::string> terminalID;
  std::string title;  // never empty
  std::string provider = "Agent";
  AgentState state = AgentState::unknown;
  std::string context = "Local session";  // working directory or workspace
  std::optional<WallTime> since;          // when it entered the state, where the source knows
  bool tellsState = false;                // `state` is told by the agent itself, to the moment
  std::optional<CodexTie> codexTie;
  bool operator==(const HerdrAgent&) const = default;

  bool isExternal() const { return externalProcess.has_value(); }
  bool isRemote() const { return machine.has_value(); }
  bool isCodexLive() const { return !machine && session == "codex-live"; }

  // The sole identity. A stored format: preference keys hold this text. Lengths are in UTF-8 bytes, so that
  // equal concatenations of different fields stay apart.
  std::string id() const;

  // Stands in front of every Herdr command aimed at this agent.
  std::vector<std::string> commandPrefix() const;

  std::optional<AgentProvider> knownProvider() const;
  AgentHost host() const;
  std::optional<std::string> hostLabel() const;
  std::string projectLabel() const;

  // The user's own title for the agent where there is one, else `title`.
  std::string displayTitle(const Preferences& preferences) const;

  // Whether an external agent's transcript changed within the last 10 seconds, as the last scan saw it: an
  // agent without a status channel, whose `since` is the file's modification, looks working while it grows.
  bool recentlyActive(WallTime now) const;
};

}  // namespace ostrel
