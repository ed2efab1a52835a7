#include "Discovery/ExternalAgents.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <set>
#include <tuple>
#include <unordered_set>

#include <fmt/format.h>

#include "Runtime/Failure.h"
#include "Runtime/Files.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

using namespace std::literals;

// A server or a run that only prints something is no conversation.
constexpr std::array kNoConversation = {"app-server"sv,           "mcp-server"sv, "completion"sv,
                                        "generate-json-schema"sv, "--version"sv,  "--help"sv};
constexpr auto kBundle = ".app/Contents/MacOS/"sv;

// The words of a command line, whether the program keeps its arguments apart or has rewritten them into one.
std::vector<std::string> words(const std::vector<std::string>& arguments) {
  std::vector<std::string> all;
  for (const std::string& argument : arguments) {
    for (const auto word : text::words(argument)) all.emplace_back(word);
  }
  return all;
}

bool isConversation(const std::vector<std::string>& words, std::string_view tty) {
  if (words.empty()) return false;
  for (std::size_t i = 1; i < std::min<std::size_t>(words.size(), 3); ++i) {
    if (std::ranges::find(kNoConversation, words[i]) != kNoConversation.end()) return false;
  }
  return tty != "??" || (words.size() > 1 && words[1] == "exec");
}

WallTime started(const ScanTable::Entry& entry) {
  return entry.startSeconds ? WallTime(std::chrono::seconds(*entry.startSeconds))
                            : ExternalAgents::startDate(entry.process.started);
}

// "codex resume ID"
std::vector<std::string> resumedThreads(const std::vector<std::string>& arguments) {
  std::vector<std::string> ids;
  if (std::ranges::find(arguments, "resume") == arguments.end()) return ids;
  for (const std::string& argument : arguments) {
    if (auto id = text::canonicalUuid(argument)) ids.push_back(std::move(*id));
  }
  return ids;
}

// Calls `visit` with each ancestor that `find` knows, nearest first, until it returns true; whether one did.
template <class Find, class Visit>
bool anyAncestor(const ExternalProcess& process, Find find, Visit visit) {
  std::set<std::int64_t> visited;
  for (std::int64_t pid = process.parent; visited.insert(pid).second;) {
    const ScanTable::Entry* const ancestor = find(pid);
    if (!ancestor) return false;
    if (visit(ancestor->process)) return true;
    pid = ancestor->process.parent;
  }
  return false;
}

}  // namespace

ExternalAgents::ExternalAgents(Sources sources)
    : sources_(std::move(sources)), sessions_(sources_.environment.claudeFolder() / "sessions") {}

std::vector<HerdrAgent> ExternalAgents::scan(std::stop_token stop) {
  ScanTable table = this->table(stop);
  const auto candidates = table.candidates();
  if (sources_.announce && sources_.environment.hasArgument("--check-discovery-live"))
    sources_.announce(
        fmt::format("Observed {} user processes; candidates: {}", table.ownCount(), candidates.size()));

  std::vector<HerdrAgent> agents;
  Hosts hosts;
  for (const std::int64_t pid : candidates) {
    if (stop.stop_requested()) throw Cancelled();
    const ScanTable::Entry* const entry = table.findOwn(pid);
    if (auto found = agent(table, *entry, hosts)) agents.push_back(std::move(*found));
  }
  std::erase_if(agents, [this](const HerdrAgent& agent) {
    return !sources_.processes.alive(static_cast<std::int32_t>(agent.externalProcess->pid));
  });
  findCodexClients(agents);
  return agents;
}

// A Codex terminal that has joined the app server holds no conversation's file open.
void ExternalAgents::findCodexClients(std::vector<HerdrAgent>& agents) {
  std::vector<std::int32_t> pids;
  for (const HerdrAgent& agent : agents) {
    if (agent.codexTie && !agent.transcriptReference)
      pids.push_back(static_cast<std::int32_t>(agent.externalProcess->pid));
  }
  if (pids.empty() || !sources_.sockets) return;
  const auto clients = sources_.sockets->clients(sources_.codexSocket, pids);
  if (!clients) return;
  for (HerdrAgent& agent : agents) {
    if (agent.codexTie && !agent.transcriptReference)
      agent.codexTie->client = clients->contains(static_cast<std::int32_t>(agent.externalProcess->pid));
  }
}

ScanTable ExternalAgents::table(const std::stop_token& stop) {
  Processes& processes = sources_.processes;
  auto rows = processes.rows(&ScanTable::mayBeAgent);
  if (!rows.empty()) return {processes, std::move(rows)};
  if (const auto text = processes.table()) return {processes, *text};
  if (!sources_.runPs) throw Failure("The process table could not be read.");
  return {processes,
          text::repairUtf8(sources_.runPs({"-axo", "pid=,ppid=,uid=,stat=,tty=,lstart=,comm="}, stop))};
}

std::optional<HerdrAgent> ExternalAgents::agent(ScanTable& table, const ScanTable::Entry& entry,
                                                Hosts& hosts) {
  const ExternalProcess& process = entry.process;
  const auto pid = static_cast<std::int32_t>(process.pid);
  const std::string provider(*process.provider());
  const std::vector<std::string> arguments = words(sources_.processes.argumentList(pid));
  if (!isConversation(arguments, process.tty)) return std::nullopt;

  const auto own = [&table](std::int64_t ancestor) { return table.findOwn(ancestor); };
  // A child of an agent is not a second agent, while a Claude that a Codex started is.
  if (anyAncestor(process, own,
                  [&](const ExternalProcess& ancestor) { return ancestor.provider() == provider; }))
    return std::nullopt;

  HerdrAgent agent;
  agent.externalProcess = process;
  agent.herdrOwned =
      anyAncestor(process, own, [](const ExternalProcess& ancestor) { return ancestor.name() == "herdr"; });
  if (!agent.herdrOwned) {
    agent.externalProcess->hostApp = hostApp(table, process, hosts);
    // A Herdr that has handed its panes over to a new server is no ancestor of what runs in them.
    if (sources_.processes.variable(pid, "HERDR_ENV"))
      agent.externalProcess->herdrPane = sources_.processes.variable(pid, "HERDR_PANE_ID");
  }
  if (const auto& host = agent.externalProcess->hostApp)
    agent.externalProcess->hostName = sources_.hosts.nameOf(*host);

  OpenFiles files = openFiles(sources_.processes.openFiles(pid));
  agent.paneID = fmt::format("{}:{}", process.pid, process.started);
  agent.session = "external";
  agent.provider = provider;
  agent.context = std::move(files.folder);
  // A control character was taken for a "?" there.
  if (agent.context.contains('?')) agent.context = sources_.processes.workingFolder(pid);
  if (provider == "codex" && process.tty != "??")
    agent.codexTie = CodexTie{started(entry), std::nullopt, resumedThreads(arguments)};
  tie(agent, entry, files.transcripts);

  auto title = sources_.titles.linkedTitle(agent.transcriptReference, agent.transcriptKind, provider,
                                           std::chrono::steady_clock::now());
  const std::string_view project =
      agent.context.starts_with('/') ? text::lastPathComponent(agent.context) : std::string_view(process.tty);
  agent.title =
      title ? std::move(*title) : fmt::format("{} · {}", text::capitalizedFirst(provider), oneLine(project));
  if (!agent.since && agent.transcriptKind == "path") {
    if (const auto status = files::status(*agent.transcriptReference)) agent.since = status->modified;
  }
  return agent;
}

std::optional<std::string> ExternalAgents::hostApp(ScanTable& table, const ExternalProcess& process,
                                                   Hosts& hosts) {
  std::optional<std::string> host;
  // Through other users' processes too: a `sudo` or a login between terminal and agent is no end.
  anyAncestor(
      process, [&table](std::int64_t pid) { return table.find(pid); },
      [&](const ExternalProcess& ancestor) {
        const auto [known, fresh] = hosts.try_emplace(ancestor.pid);
        if (fresh) known->second = hostOf(ancestor);
        host = known->second;
        return host.has_value();
      });
  return host;
}

std::optional<std::string> ExternalAgents::hostOf(const ExternalProcess& ancestor) {
  if (ancestor.executable.contains(kBundle))
    return ancestor.executable.substr(0, ancestor.executable.find(".app/")) + ".app";
  // The command names a program by the kernel's name where that differs from its file's: a terminal written
  // in Python has its script's name, and longer names are cut. So the path itself is asked for.
  const auto pid = static_cast<std::int32_t>(ancestor.pid);
  const std::string path = sources_.processes.executablePath(pid);
  if (path.empty()) return std::nullopt;
  return sources_.hosts.hostOf(path, sources_.processes.argumentList(pid));
}

// A link is made only where it is proved: by the one conversation that the process holds open for writing, or
// by Claude Code's own session file.
void ExternalAgents::tie(HerdrAgent& agent, const ScanTable::Entry& entry,
                         const std::vector<std::string>& candidates) {
  std::set<std::string> paths;
  for (const std::string& candidate : candidates) {
    try {
      paths.insert(sources_.transcripts.resolve(candidate, "path", agent.provider).string());
    } catch (const Failure&) {
      continue;  // outside the history folders
    }
  }
  if (paths.size() == 1) {
    agent.transcriptKind = "path";
    agent.transcriptReference = *paths.begin();
  }
  if (agent.provider == "codex" && agent.transcriptReference && sources_.rollouts) {
    // A run without a terminal has nobody to ask.
    if (auto turn = sources_.rollouts->look(*agent.transcriptReference, agent.codexTie.has_value())) {
      agent.tellsState = true;
      agent.state = turn->state;
      agent.since = turn->since;
    }
  }
  if (agent.provider != "claude") return;
  const auto pid = static_cast<std::int32_t>(entry.process.pid);
  auto session = sessions_.session({pid, started(entry), entry.startTicks},
                                   [this, pid] { return sources_.processes.innerPids(pid); });
  if (!session) return;
  agent.transcriptKind = "id";
  agent.transcriptReference = std::move(session->id);
  agent.since = session->since;
  agent.state = session->state;
}

}  // namespace ostrel
