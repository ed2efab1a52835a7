// The conversations that are loaded in Codex's app server, as agents, and messages for them. Blocks:
// background work only.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "Codex/CodexLocalServer.h"
#include "Runtime/Json.h"

namespace ostrel::CodexLive {

// The ids of all loaded conversations, at most 1000, in the server's order.
std::vector<std::string> loadedIDs(CodexLocalServer::Connection& connection);

// Nothing for a thread that is not shown by itself: a child of another, a helper that is thrown away, one
// that is not loaded, or one of an unknown shape.
std::optional<HerdrAgent> agent(const Json& thread);

// Nothing for a type that is not one of a loaded thread.
std::optional<AgentState> stateOf(const Json& status);

// The title for a name that a thread was given; empty or missing names the folder instead.
std::string titleOf(const std::optional<std::string>& name, const std::string& folder);
// Gives threads of one folder that have no name of their own different titles.
void tellApart(std::vector<HerdrAgent>& agents);

// A thread as the server has it now, an object; nothing when it has gone.
std::optional<Json> readThread(CodexLocalServer::Connection& connection, const std::string& id);

// One pass over a connection of its own, sorted by id. A thread that goes during the pass is left out.
std::vector<HerdrAgent> list(const std::string& socket, std::stop_token stop = {});

// Gets the whole list, sorted by id, on the thread that follows.
using Told = std::function<void(std::vector<HerdrAgent>)>;
struct Pace {
  // Between looks at everything; in between, the server tells what changes.
  Duration check = std::chrono::minutes(5);
  CodexLocalServer::Limits limits{};
};
// Tells the list at once and after each change, for as long as one connection stands; joins no thread.
// Blocks; throws `Failure` when the connection fails and `Cancelled` when `stop` fires. Returns, having told
// nothing, where there is no socket.
void follow(const std::string& socket, const Told& told, std::stop_token stop, Pace pace = {});

// How a message is handed to Codex.
struct QueueTool {
  std::string socket;
  std::function<std::optional<std::filesystem::path>()> find;  // the `codex` tool
  std::map<std::string, std::string> environment;              // the tool's
};
// Queues `text` for a conversation that accepts it, by the `codex` tool. Throws `Failure` when it was not
// queued, or when that is not known.
void queue(const QueueTool& tool, const std::string& id, const std::string& text, std::stop_token stop = {});
// The tool's arguments.
std::vector<std::string> queueArguments(const std::string& socket, const std::string& id,
                                        const std::string& text);

}  // namespace ostrel::CodexLive
