#include "Codex/CodexLive.h"

#include <algorithm>
#include <set>
#include <utility>

#include "Runtime/Failure.h"
#include "Runtime/Subprocess.h"
#include "Runtime/Text.h"

namespace ostrel::CodexLive {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t kMostThreads = 1000;
constexpr std::size_t kMostPages = 1000;              // empty ones too
constexpr std::size_t kLongestTitle = 300;            // characters
constexpr std::size_t kLongestPath = 4096;            // bytes
constexpr std::size_t kDistinct = 4;                  // digits of an id's end, which is random
constexpr std::int64_t kLargestDate = 9'000'000'000;  // seconds; the clock's type ends in the year 2262
constexpr Duration kQueueTime = 20s;
constexpr std::size_t kLargestOutput = 1'000'000;  // bytes

// In a flag's name, each of these means that a person is waited for.
constexpr std::string_view kWaiting[] = {"wait", "approval", "input", "permission"};

bool waitsForPerson(const Json& status) {
  const Json* const flags = json::member(status, "activeFlags");
  if (!flags || !flags->is_array()) return false;
  return std::ranges::any_of(*flags, [](const Json& flag) {
    if (!flag.is_string()) return false;
    const std::string lower = text::lowercase(flag.get<std::string>());
    return std::ranges::any_of(kWaiting,
                               [&](const auto word) { return lower.find(word) != std::string::npos; });
  });
}

// What a failed tool says itself, without its "Error: ".
std::string complaint(const std::string& output) {
  std::string_view words = text::trim(output);
  if (const auto error = words.rfind("Error: "); error != std::string_view::npos)
    words = text::trim(words.substr(error + 7));
  const std::string line = text::repairUtf8(text::split(words, '\n').front());
  return line.empty() ? "Codex could not queue this message." : line;
}

}  // namespace

std::optional<AgentState> stateOf(const Json& status) {
  const auto type = json::string(status, "type");
  if (type == "active") return waitsForPerson(status) ? AgentState::blocked : AgentState::working;
  if (type == "idle") return AgentState::idle;
  if (type == "systemError") return AgentState::unknown;
  return std::nullopt;
}

std::string titleOf(const std::optional<std::string>& name, const std::string& folder) {
  if (const auto given = text::trim(name ? std::string_view(*name) : std::string_view()); !given.empty())
    return std::string(text::prefixCharacters(given.substr(0, kLongestPath), kLongestTitle));
  const std::string_view last = text::lastPathComponent(folder);
  return "Codex · " + (last.empty() ? folder : std::string(last));
}

void tellApart(std::vector<HerdrAgent>& agents) {
  std::map<std::string, int> unnamed;  // how many, by title
  for (const HerdrAgent& agent : agents) {
    if (agent.title == titleOf(std::nullopt, agent.context)) ++unnamed[agent.title];
  }
  for (HerdrAgent& agent : agents) {
    if (agent.title != titleOf(std::nullopt, agent.context) || unnamed[agent.title] < 2) continue;
    agent.title += " · " + agent.paneID.substr(agent.paneID.size() - kDistinct);
  }
}

std::vector<std::string> loadedIDs(CodexLocalServer::Connection& connection) {
  std::vector<std::string> ids;
  std::set<std::string> cursors;
  Json params{{"limit", 100}};
  for (;;) {
    const Json result = connection.call("thread/loaded/list", params);
    const Json* const data = json::member(result, "data");
    const bool valid = data && data->is_array() && std::ranges::all_of(*data, [](const Json& id) {
                         return id.is_string() && text::canonicalUuid(id.get_ref<const std::string&>());
                       });
    if (!valid) throw Failure("Unsupported Codex live-session response.");
    for (const Json& id : *data) ids.push_back(id.get<std::string>());
    const auto cursor = json::string(result, "nextCursor");
    if (cursor && !cursors.insert(*cursor).second) throw Failure("Codex repeated a session page.");
    if (ids.size() > kMostThreads || cursors.size() > kMostPages)
      throw Failure("Codex live-session list exceeded its limit.");
    if (!cursor) return ids;
    params["cursor"] = *cursor;
  }
}

std::optional<HerdrAgent> agent(const Json& thread) {
  const auto id = json::string(thread, "id");
  if (!id || !text::canonicalUuid(*id)) return std::nullopt;
  const Json* const parent = json::member(thread, "parentThreadId");
  if (parent && !parent->is_null()) return std::nullopt;
  if (json::boolean(thread, "ephemeral").value_or(false)) return std::nullopt;
  const Json* const status = json::member(thread, "status");
  const auto state = status ? stateOf(*status) : std::nullopt;
  auto folder = json::string(thread, "cwd");
  if (!state || !folder || folder->size() > kLongestPath) return std::nullopt;

  HerdrAgent agent;
  agent.paneID = *id;
  agent.session = "codex-live";
  agent.transcriptReference = id;
  agent.transcriptKind = "id";
  agent.title = titleOf(json::string(thread, "name"), *folder);
  agent.provider = "codex";
  agent.state = *state;
  agent.context = std::move(*folder);
  agent.acceptsDirectInput = json::boolean(thread, "canAcceptDirectInput").value_or(false);
  agent.codexTie.emplace();
  if (const auto made = json::integer(thread, "createdAt"); made && *made > 0 && *made < kLargestDate)
    agent.codexTie->started = WallTime(std::chrono::seconds(*made));
  return agent;
}

std::optional<Json> readThread(CodexLocalServer::Connection& connection, const std::string& id) {
  Json result;
  try {
    result = connection.call("thread/read", {{"threadId", id}, {"includeTurns", false}});
  } catch (const CodexLocalServer::Refusal&) {
    return std::nullopt;
  }
  const Json* const thread = json::member(result, "thread");
  if (!thread || json::string(*thread, "id") != id)
    throw Failure("Codex returned a different live conversation.");
  return *thread;
}

std::vector<HerdrAgent> list(const std::string& socket, std::stop_token stop) {
  CodexLocalServer::Connection connection(socket, stop);
  const std::vector<std::string> ids = loadedIDs(connection);
  std::vector<HerdrAgent> agents;
  for (const std::string& id : std::set(ids.begin(), ids.end())) {
    if (stop.stop_requested()) throw Cancelled();
    const auto thread = readThread(connection, id);
    if (!thread) continue;
    if (auto shown = agent(*thread)) agents.push_back(std::move(*shown));
  }
  tellApart(agents);
  return agents;
}

std::vector<std::string> queueArguments(const std::string& socket, const std::string& id,
                                        const std::string& text) {
  if (!text::canonicalUuid(id) || text::trim(text).empty())
    throw Failure("A live conversation and message are required.");
  return {"queue", "--remote", "unix://" + socket, "--thread", id, "--message", text};
}

void queue(const QueueTool& tool, const std::string& id, const std::string& text, std::stop_token stop) {
  const std::vector<HerdrAgent> agents = list(tool.socket, stop);
  const bool accepts = std::ranges::any_of(agents, [&](const HerdrAgent& agent) {
    return agent.paneID == id && agent.acceptsDirectInput &&
           (agent.state == AgentState::idle || agent.state == AgentState::working);
  });
  if (!accepts) throw Failure("This Codex session is no longer accepting input. Your draft is kept.");
  const auto program = tool.find();
  if (!program) throw Failure("The Codex CLI is required to queue messages.");
  const auto result = Subprocess::run(program->string(), queueArguments(tool.socket, id, text),
                                      tool.environment, kQueueTime, kLargestOutput, std::move(stop));
  if (result.succeeded()) return;
  if (result.end == Subprocess::End::timedOut)
    throw Failure("Codex did not confirm the message in time. Input was not retried.");
  throw Failure(complaint(result.output));
}

}  // namespace ostrel::CodexLive
