#include "Codex/CodexThreads.h"

#include <utility>

#include "Codex/CodexLive.h"
#include "Codex/CodexMessage.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

constexpr std::size_t kMostThreads = 1000;

}  // namespace

void CodexThreads::event(std::string bytes, WallTime now) {
  const auto message = CodexMessage::parse(bytes);
  if (!message || !message->params || !message->method.starts_with("thread/")) return;
  const std::string& method = message->method;
  const bool started = method == "thread/started";
  const bool status = method == "thread/status/changed";
  const bool named = method == "thread/name/updated";
  const bool over = method == "thread/closed" || method == "thread/archived" || method == "thread/deleted";
  if (!started && !status && !named && !over) return;
  const auto params = json::parse(*message->params);
  const Json* const thread = params ? json::member(*params, "thread") : nullptr;
  const auto id = !params ? std::nullopt
                          : json::string(started && thread ? *thread : *params, started ? "id" : "threadId");
  if (!id || !text::canonicalUuid(*id)) return;
  if (started) {
    read(*id, *thread, now);
  } else if (over) {
    gone(*id);
  } else if (status) {
    if (const Json* const told = json::member(*params, "status")) statusChanged(*id, *told, now);
  } else if (const auto known = threads_.find(*id); known != threads_.end()) {
    HerdrAgent agent = known->second;
    agent.title = CodexLive::titleOf(json::string(*params, "threadName"), agent.context);
    put(std::move(agent), now);
  }
}

void CodexThreads::read(const std::string& id, const std::optional<Json>& thread, WallTime now) {
  unread_.erase(id);
  auto agent = thread ? CodexLive::agent(*thread) : std::nullopt;
  if (agent) return put(std::move(*agent), now);
  gone(id);
  if (thread && passedOver_.size() < kMostThreads) passedOver_.insert(id);
}

void CodexThreads::statusChanged(const std::string& id, const Json& status, WallTime now) {
  const auto state = CodexLive::stateOf(status);
  if (!state) return gone(id);
  const auto known = threads_.find(id);
  if (known == threads_.end()) {
    if (!passedOver_.contains(id) && unread_.size() < kMostThreads) unread_.insert(id);
    return;
  }
  HerdrAgent agent = known->second;
  agent.state = *state;
  put(std::move(agent), now);
}

void CodexThreads::put(HerdrAgent agent, WallTime now) {
  const auto known = threads_.find(agent.paneID);
  if (known == threads_.end()) {
    if (threads_.size() >= kMostThreads) return;
  } else {
    agent.since = known->second.state == agent.state ? known->second.since : now;
    if (agent == known->second) return;
  }
  changed_ = true;
  std::string id = agent.paneID;
  threads_.insert_or_assign(std::move(id), std::move(agent));
}

void CodexThreads::gone(const std::string& id) {
  passedOver_.erase(id);
  unread_.erase(id);
  if (threads_.erase(id)) changed_ = true;
}

std::set<std::string> CodexThreads::known() const {
  std::set<std::string> ids;
  for (const auto& [id, agent] : threads_) ids.insert(id);
  return ids;
}

void CodexThreads::forget(const std::set<std::string>& ids) {
  for (const std::string& id : ids) gone(id);
}

std::vector<HerdrAgent> CodexThreads::agents() const {
  std::vector<HerdrAgent> agents;
  for (const auto& [id, agent] : threads_) agents.push_back(agent);
  CodexLive::tellApart(agents);
  return agents;
}

}  // namespace ostrel
