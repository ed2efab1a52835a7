// The events of a Herdr session: what to subscribe to, and what one of them says. Pure functions, any thread.
//
// A session replays what it remembers at every subscription to the plain types, and tells of changes that
// concern no agent. So an event counts only where it differs from what is known.
#pragma once

#include <optional>
#include <span>
#include <string>

#include "Agents/HerdrAgent.h"
#include "Runtime/Json.h"

namespace ostrel::HerdrEvents {

// The types that need no pane; they stand for as long as the session lives.
Json plainSubscriptions();
// The status of these panes. Refused whole where one of them is gone.
Json statusSubscriptions(std::span<const std::string> panes);

// Whether `event` may mean that the list of agents has changed, given the list as it is known. Events of
// unknown kinds may.
bool isNews(const Json& event, std::span<const HerdrAgent> known);

// The state of a pane's agent where the event tells one.
struct Status {
  std::string pane;
  AgentState state;
};
std::optional<Status> statusIn(const Json& event);

}  // namespace ostrel::HerdrEvents
