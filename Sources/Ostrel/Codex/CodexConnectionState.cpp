#include "Codex/CodexConnectionState.h"

#include <algorithm>
#include <utility>

#include "Codex/CodexCard.h"
#include "Runtime/Failure.h"

namespace ostrel {

namespace {

// What a server can make us keep. A request beyond it is not shown; the terminal still asks.
constexpr std::size_t kMostPendingBytes = 32'000'000;
constexpr std::size_t kMostPending = 200;
// Of running commands and file changes, of which the oldest go first: a card does without.
constexpr std::size_t kMostItemBytes = 8'000'000;
constexpr std::size_t kLargestItem = 2'000'000;
constexpr std::size_t kMostItems = 1000;

bool isShownItem(const Json& item) {
  const auto type = json::string(item, "type");
  return type == "commandExecution" || type == "fileChange";
}

}  // namespace

void CodexConnectionState::joined(const std::string& thread) {
  connected_.insert(thread);
  joining_.reset();
  emit_(codexevent::Connected{epoch_, thread});
}

void CodexConnectionState::refused(const std::string& thread) {
  joining_.reset();
  resolveAll(thread, [](const CodexRequest&) { return true; });
  forgetItems(thread, {});
}

void CodexConnectionState::leave(const std::string& thread) {
  if (connected_.erase(thread)) emit_(codexevent::Disconnected{epoch_, thread});
  resolveAll(thread, [](const CodexRequest&) { return true; });
  forgetItems(thread, {});
}

void CodexConnectionState::turns(const std::string& thread, const Json& page) {
  const Json* const data = json::member(page, "data");
  if (!data || !data->is_array()) return;
  for (const Json& turn : *data) {
    const Json* const items = json::member(turn, "items");
    if (!items || !items->is_array()) continue;
    for (const Json& one : *items) item(thread, one);
  }
}

void CodexConnectionState::item(const std::string& thread, const Json& item) {
  auto id = json::string(item, "id");
  if (!id || !follows(thread) || !isShownItem(item)) return;
  forgetItems(thread, id);
  if (const auto status = json::string(item, "status"); status && status != "inProgress") return;
  Json shown = item;
  // Can be megabytes, and no card shows it.
  shown.erase("aggregatedOutput");
  std::string bytes = json::dump(shown);
  if (bytes.size() > kLargestItem) return;
  itemBytes_ += bytes.size();
  items_.push_back({thread, std::move(*id), std::move(bytes)});
  while (itemBytes_ > kMostItemBytes || items_.size() > kMostItems) {
    itemBytes_ -= items_.front().bytes.size();
    items_.pop_front();
  }
  const std::string subject = thread + ":" + items_.back().id;
  const bool asked =
      std::ranges::any_of(subjects_, [&](const auto& entry) { return entry.second == subject; });
  if (asked) tellItem(subject);
}

void CodexConnectionState::forgetItems(const std::string& thread, const std::optional<std::string>& id) {
  std::erase_if(items_, [&](const Item& item) {
    const bool gone = item.thread == thread && (!id || item.id == *id);
    if (gone) itemBytes_ -= item.bytes.size();
    return gone;
  });
}

void CodexConnectionState::tellItem(const std::string& subject) {
  for (const Item& item : items_) {
    if (subject == item.thread + ":" + item.id)
      emit_(codexevent::Item{epoch_, item.thread, item.id, item.bytes});
  }
}

void CodexConnectionState::event(std::string bytes) {
  const auto message = CodexMessage::parse(bytes);
  if (!message || message->method.empty() || !message->params) return;
  if (auto asked = CodexRequest::parse(*message, epoch_)) {
    request(std::move(*asked));
    return;
  }
  const std::string& method = message->method;
  const bool aboutItem = method == "item/started" || method == "item/updated" || method == "item/completed";
  const bool turnEnded = method == "turn/completed";
  const bool closed = method == "thread/closed";
  // Most of what comes is streamed text, which is not even parsed.
  if (!aboutItem && !turnEnded && !closed && method != "serverRequest/resolved") return;
  const auto params = json::parse(*message->params);
  const auto thread = params ? json::string(*params, "threadId") : std::nullopt;
  if (!thread) return;

  if (aboutItem) {
    if (const Json* const one = json::member(*params, "item")) item(*thread, *one);
  } else if (closed) {
    leave(*thread);
  } else if (turnEnded) {
    const Json* const turn = json::member(*params, "turn");
    const auto id = turn ? json::string(*turn, "id") : std::nullopt;
    if (!id) return;
    // A turn that has ended needs no answer any more.
    resolveAll(*thread, [&](const CodexRequest& open) {
      return json::string(json::parse(open.payload).value_or(Json()), "turnId") == id;
    });
  } else {
    // From the text: the id keeps its digits.
    std::string text(*message->params);
    const auto members = jsonMembers(text);
    if (!members) return;
    for (const auto& [name, value] : *members) {
      const auto wireID = name == "requestId" ? CodexMessage::wireID(value) : std::nullopt;
      if (!wireID) continue;
      const std::string key = CodexRequest::key(epoch_, *wireID);
      resolveAll(*thread, [&](const CodexRequest& open) { return open.id() == key; });
    }
  }
}

void CodexConnectionState::request(CodexRequest request) {
  if (!follows(request.threadID)) return;
  const std::string key = request.id();
  const auto known = pending_.find(key);
  if (known != pending_.end() && known->second == request) return;  // sent again to us
  const std::size_t freed = known == pending_.end() ? 0 : known->second.payload.size();
  if (pendingBytes_ - freed + request.payload.size() > kMostPendingBytes) return;
  if (known == pending_.end() && pending_.size() >= kMostPending) return;
  pendingBytes_ += request.payload.size() - freed;
  pending_[key] = request;
  emit_(codexevent::Received{request});
  subjects_.erase(key);
  if (auto subject = CodexCard::itemKey(request)) tellItem(subjects_[key] = std::move(*subject));
}

template <class Over>
void CodexConnectionState::resolveAll(const std::string& thread, Over over) {
  for (auto next = pending_.begin(); next != pending_.end();) {
    const auto open = next++;
    if (open->second.threadID != thread || !over(open->second)) continue;
    std::string key = open->first;
    pendingBytes_ -= open->second.payload.size();
    pending_.erase(open);
    subjects_.erase(key);
    answered_.erase(key);
    emit_(codexevent::Resolved{epoch_, thread, std::move(key)});
  }
}

std::optional<std::string> CodexConnectionState::answer(const CodexRequest& request,
                                                        const std::string& result,
                                                        const std::set<std::string>& desired) {
  const std::string key = request.id();
  const auto open = pending_.find(key);
  if (request.epoch != epoch_ || !connected_.contains(request.threadID) ||
      !desired.contains(request.threadID) || open == pending_.end() || open->second != request ||
      answered_.contains(key)) {
    emit_(codexevent::Failed{key, "This request has changed or was already answered. Nothing was sent."});
    return std::nullopt;
  }
  if (!json::parse(result)) throw Failure("The answer is not JSON.");
  answered_.insert(key);
  return "{\"id\":" + request.wireID + ",\"result\":" + result + "}";
}

}  // namespace ostrel
