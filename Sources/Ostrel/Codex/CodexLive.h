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

// One pass over a connection of its own, sorted by id. A thread that goes during the pass is left out.
std::vector<HerdrAgent> list(const std::string& socket, std::stop_token stop = {});

// How a message is handed to Codex.
struct Door {
  std::string socket;
  std::function<std::optional<std::filesystem::path>()> find;  // the `codex` tool
  std::map<std::string, std::string> environment;              // the tool's
};
// Queues `text` for a conversation that accepts it, by the `codex` tool. Throws `Failure` when it was not
// queued, or when that is not known.
void queue(const Door& door, const std::string& id, const std::string& text, std::stop_token stop = {});
// The tool's arguments.
std::vector<std::string> queueArguments(const std::string& socket, const std::string& id,
                                        const std::string& text);

}  // namespace ostrel::CodexLive
