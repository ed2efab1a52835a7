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
constexpr std::size_t kMostPages = 1000;  // empty ones too
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

// Nothing for a type that is not one of a loaded thread.
std::optional<std::string> stateOf(const Json& thread) {
  const Json* const status = json::member(thread, "status");
  const auto type = status ? json::string(*status, "type") : std::nullopt;
  if (type == "active") return waitsForPerson(*status) ? "blocked" : "working";
  if (type == "idle") return "idle";
  if (type == "systemError") return "unknown";
  return std::nullopt;
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
  auto state = stateOf(thread);
  auto folder = json::string(thread, "cwd");
  if (!state || !folder) return std::nullopt;

  HerdrAgent agent;
  agent.paneID = *id;
  agent.session = "codex-live";
  agent.transcriptReference = id;
  agent.transcriptKind = "id";
  agent.title = text::trim(json::string(thread, "name").value_or(""));
  if (agent.title.empty()) agent.title = "Codex · " + id->substr(0, 8);
  agent.provider = "codex";
  agent.state = std::move(*state);
  agent.context = std::move(*folder);
  agent.acceptsDirectInput = json::boolean(thread, "canAcceptDirectInput").value_or(false);
  return agent;
}

std::vector<HerdrAgent> list(const std::string& socket, std::stop_token stop) {
  CodexLocalServer::Connection connection(socket, stop);
  const std::vector<std::string> ids = loadedIDs(connection);
  std::vector<HerdrAgent> agents;
  for (const std::string& id : std::set(ids.begin(), ids.end())) {
    if (stop.stop_requested()) throw Cancelled();
    Json result;
    try {
      result = connection.call("thread/read", {{"threadId", id}, {"includeTurns", false}});
    } catch (const CodexLocalServer::Refusal&) {
      continue;  // gone since it was listed
    }
    const Json* const thread = json::member(result, "thread");
    if (!thread || json::string(*thread, "id") != id)
      throw Failure("Codex returned a different live conversation.");
    if (auto shown = agent(*thread)) agents.push_back(std::move(*shown));
  }
  return agents;
}

std::vector<std::string> queueArguments(const std::string& socket, const std::string& id,
                                        const std::string& text) {
  if (!text::canonicalUuid(id) || text::trim(text).empty())
    throw Failure("A live conversation and message are required.");
  return {"queue", "--remote", "unix://" + socket, "--thread", id, "--message", text};
}

void queue(const Door& door, const std::string& id, const std::string& text, std::stop_token stop) {
  const std::vector<HerdrAgent> agents = list(door.socket, stop);
  const bool accepts = std::ranges::any_of(agents, [&](const HerdrAgent& agent) {
    return agent.paneID == id && agent.acceptsDirectInput &&
           (agent.state == "idle" || agent.state == "working");
  });
  if (!accepts) throw Failure("This Codex session is no longer accepting input. Your draft is kept.");
  const auto tool = door.find();
  if (!tool) throw Failure("The Codex CLI is required to queue messages.");
  const auto result = Subprocess::run(tool->string(), queueArguments(door.socket, id, text), door.environment,
                                      kQueueTime, kLargestOutput, std::move(stop));
  if (result.succeeded()) return;
  if (result.end == Subprocess::End::timedOut)
    throw Failure("Codex did not confirm the message in time. Input was not retried.");
  throw Failure(complaint(result.output));
}

}  // namespace ostrel::CodexLive
