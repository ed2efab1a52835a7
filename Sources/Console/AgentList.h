// How the console shows a list of agents: as text for people and scripts, as JSON for programs. Pure
// functions.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Agents/HerdrAgent.h"

namespace ostrel::console {

struct ShownAgent {
  HerdrAgent agent;
  std::string title;  // the one to show: the person's own where there is one
  AgentLight light = AgentLight::idle;
  std::optional<std::string> transcript;  // the conversation's file, where there is one
};

struct AgentList {
  std::vector<ShownAgent> agents;
  std::optional<std::string> error;  // why the list may lack agents
};

// One agent a line, ending in a newline each: id, provider, state, light, title, context. `columns` lines the
// fields up with a heading for a terminal; otherwise a tab stands between them. Control characters are shown
// as escapes, so a line is always one agent. No agents give "No agents running" in columns, and nothing
// otherwise.
std::string asText(const AgentList& list, bool columns);

// One line: {"agents":[{...}]}, with "error" where there is one. Every agent has "id", "provider", "state",
// "light", "title", "context", "project", "host" (null where unknown), "pid", "tty" (null for agents without
// a process), "since" (RFC 3339 in UTC, null where unknown) and "transcript": null or
// {"kind","reference","path"} ("path" null where there is no file).
std::string asJson(const AgentList& list);

}  // namespace ostrel::console
