// How the console shows a list of agents: as text for people and scripts, as JSON for programs. Pure
// functions.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "Runtime/Json.h"

namespace ostrel::console {

struct ShownAgent {
  HerdrAgent agent;
  std::string title;  // the one to show: the person's own where there is one
  AgentLight light = AgentLight::idle;
  std::optional<std::string> transcript;  // the conversation's file, where there is one
};

struct Listing {
  std::vector<ShownAgent> agents;
  std::optional<std::string> error;  // why the list may lack agents
  // The link with Herdr in one line and what is wrong with it; nothing while it is off.
  std::optional<std::string> herdr;
  std::optional<std::string> herdrError;
  // Codex threads that are loaded, rest, and are linked to no agent.
  std::vector<ShownAgent> loadedCodex{};
};

// One agent a line, then one loaded Codex thread a line, ending in a newline each: id, provider, state,
// light, title, context. `columns` lines the fields up with a heading for a terminal; otherwise a tab stands
// between them. Control characters are shown as escapes, so a line is always one agent. No agents give "No
// agents running" in columns, and nothing otherwise.
std::string asText(const Listing& list, bool columns);

// One line: {"agents":[{...}]}, with "loadedCodex" of the same form where there are such threads, with
// "error" where there is one and "herdr": {"status","error"} ("error" null where all is well) while there is
// a link. Every agent has "id", "provider", "state", "light", "title", "context", "project", "host" (null
// where unknown), "pid", "tty" (null for agents without a process), "since" (RFC 3339 in UTC, null where
// unknown), "pane": null or {"session","id","terminal"} for one in a Herdr pane ("terminal" null where
// unknown), and "transcript": null or
// {"kind","reference","path"} ("path" null where there is no file).
std::string asJson(const Listing& list);
Json asJsonObject(const Listing& list);

}  // namespace ostrel::console
