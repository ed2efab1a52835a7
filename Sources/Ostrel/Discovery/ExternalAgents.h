// Finds coding agents that run outside Herdr: a `claude` or `codex` typed into any terminal.
//
// One scan reads the process table, decides which processes are real interactive agents, finds what hosts
// each one, ties each to its conversation where that can be proved, and gives one `HerdrAgent` a process. A
// process that fails a test is passed over in silence, and a process that vanishes meanwhile only makes the
// result smaller.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "Conversations/ConversationTitle.h"
#include "Discovery/ClaudeSessions.h"
#include "Discovery/CodexRollout.h"
#include "Discovery/ScanTable.h"
#include "Platform/Environment.h"
#include "Platform/HostApplications.h"
#include "Platform/Processes.h"
#include "Platform/SocketClients.h"

namespace ostrel {

class ExternalAgents {
 public:
  // What a scan reads from; all of it outlives the scanner.
  struct Sources {
    Processes& processes;
    HostApplications& hosts;
    AgentTranscript& transcripts;
    ConversationTitles& titles;
    const Environment& environment;
    // Runs `ps` with these arguments and gives its output, for when the kernel refuses; throws `Failure`.
    std::function<std::string(const std::vector<std::string>& arguments, std::stop_token stop)> runPs{};
    // Gets the one line of a scan under "--check-discovery-live".
    std::function<void(std::string_view)> announce{};
    // Tells which Codex terminals are clients of the app server at `codexSocket`; null where none can be.
    SocketClients* sockets = nullptr;
    std::string codexSocket{};
    // Reads what a Codex without an app server does; null: it is not known.
    CodexRollouts* rollouts = nullptr;
  };
  explicit ExternalAgents(Sources sources);

  // Blocks (a few milliseconds): background work only, one call at a time. Throws `Cancelled` when `stop`
  // fires, and `Failure` when neither the kernel nor `ps` gives a process table.
  std::vector<HerdrAgent> scan(std::stop_token stop);

  // The text of a process table, as `Processes::table` and `ps` print it, parsed. Lines that don't fit are
  // dropped, and so are zombies and, when `uid` is given, other users' processes.
  static std::vector<ExternalProcess> processes(std::string_view table, std::optional<std::int64_t> uid);

  struct OpenFiles {
    std::string folder = "Project unavailable";
    std::vector<std::string> transcripts;  // paths held open for writing whose names hold a conversation id
  };
  static OpenFiles openFiles(std::string_view text);

  // "Sun Nov 22 21:51:10 2026" or "Sun 22 Nov 21:51:10 2026" in local time; the distant past for anything
  // else.
  static WallTime startDate(std::string_view started);

  // Claude Code's status word (in lower case) as a state, by substring.
  static AgentState claudeState(std::string_view status);

 private:
  using Hosts = std::map<std::int64_t, std::optional<std::string>>;

  ScanTable table(const std::stop_token& stop);
  std::optional<HerdrAgent> agent(ScanTable& table, const ScanTable::Entry& entry, Hosts& hosts);
  std::optional<std::string> hostApp(ScanTable& table, const ExternalProcess& process, Hosts& hosts);
  std::optional<std::string> hostOf(const ExternalProcess& ancestor);
  void findCodexClients(std::vector<HerdrAgent>& agents);
  void tie(HerdrAgent& agent, const ScanTable::Entry& entry, const std::vector<std::string>& candidates);

  Sources sources_;
  ClaudeSessions sessions_;
};

}  // namespace ostrel
