#include "Claude/ClaudeForms.h"

#include "Runtime/Json.h"
#include "Runtime/Text.h"

namespace ostrel {

void ClaudeForms::take(std::string_view line, TimePoint now) {
  const auto note = json::parse(line);
  if (!note || json::string(*note, "hook_event_name") != "Notification") return;
  const auto session = json::string(*note, "session_id");
  const auto type = json::string(*note, "notification_type");
  if (!session || session->empty() || session->size() > kLongestId || !type) return;
  const std::string conversation = text::lowercase(*session);
  if (*type == "elicitation_response") {
    told_.erase(conversation);
  } else if ((*type == "elicitation_dialog" || *type == "elicitation_url_dialog") && told_.size() < kMost) {
    told_.insert_or_assign(conversation, now);
  }
  publish();
}

void ClaudeForms::reconcile(const StateOfConversation& stateOf, TimePoint now, Duration lag) {
  std::erase_if(told_, [&](const auto& form) {
    const auto& [conversation, at] = form;
    if (now - at <= lag) return false;
    const auto seen = stateOf(conversation);
    if (!seen) return now - at > kUnknown;
    return seen->at >= at + lag && seen->state != AgentState::working && seen->state != AgentState::blocked;
  });
  publish();
}

void ClaudeForms::clear() {
  told_.clear();
  publish();
}

void ClaudeForms::publish() {
  std::set<std::string> open;
  for (const auto& [conversation, at] : told_) open.insert(conversation);
  open_.set(std::move(open));
}

}  // namespace ostrel
