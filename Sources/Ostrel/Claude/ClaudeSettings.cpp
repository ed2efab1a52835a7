#include "Claude/ClaudeSettings.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "Claude/JsonSpans.h"

namespace ostrel::claudeSettings {

namespace {

using OrderedJson = nlohmann::ordered_json;

constexpr char kHooks[] = "hooks";
constexpr std::string_view kOurMark = "--permission-hook";

// A list in an object; entries of any kind may stand in it.
template <class J>
const J* listIn(const J& object, const char* key) {
  if (!object.is_object()) return nullptr;
  const auto found = object.find(key);
  return found != object.end() && found->is_array() ? &*found : nullptr;
}

// The first command of the group's hooks for which `accepts` holds.
template <class J, class Predicate>
const std::string* findCommand(const J& group, Predicate accepts) {
  const J* hooks = listIn(group, kHooks);
  if (!hooks) return nullptr;
  for (const J& hook : *hooks) {
    if (!hook.is_object()) continue;
    const auto command = hook.find("command");
    if (command == hook.end() || !command->is_string()) continue;
    const auto& words = command->template get_ref<const std::string&>();
    if (accepts(words)) return &words;
  }
  return nullptr;
}

template <class J>
const std::string* commandOfOurs(const J& group) {
  return findCommand(group, [](const std::string& command) { return command.contains(kOurMark); });
}

template <class J>
bool isOurs(const J& group) {
  return commandOfOurs(group) != nullptr;
}

const Json* groupsOf(const Json& root, const Event& event) {
  const Json* hooks = json::member(root, kHooks);
  return hooks ? listIn(*hooks, event.name) : nullptr;
}

// Whether a list of groups stands there or can be put there.
bool takesGroups(const Json& root, const Event& event) {
  const Json* hooks = json::member(root, kHooks);
  if (!hooks || hooks->is_null()) return true;
  if (!hooks->is_object()) return false;
  const Json* groups = json::member(*hooks, event.name);
  return !groups || groups->is_null() || groups->is_array();
}

template <class J>
J ourGroup(const Event& event, const std::string& command) {
  J hook = J::object();
  hook["type"] = "command";
  hook["command"] = command;
  hook["timeout"] = event.timeout;
  J group = J::object();
  group["matcher"] = event.matcher;
  group[kHooks] = J::array({std::move(hook)});
  return group;
}

template <class J>
J editedValue(J root, const Event& event, bool on, const std::string& command) {
  const auto found = root.find(kHooks);
  J hooks = found != root.end() && found->is_object() ? *found : J::object();
  J kept = J::array();
  if (const J* groups = listIn(hooks, event.name))
    std::ranges::copy_if(*groups, std::back_inserter(kept), [](const J& group) { return !isOurs(group); });
  if (on) kept.push_back(ourGroup<J>(event, command));
  if (kept.empty()) {
    hooks.erase(event.name);
  } else {
    hooks[event.name] = std::move(kept);
  }
  if (hooks.empty()) {
    root.erase(kHooks);
  } else {
    root[kHooks] = std::move(hooks);
  }
  return root;
}

// The edit in place. The text must have been parsed to `root`.
std::string editedInPlace(std::string_view text, const Json& root, const Event& event, bool on,
                          const std::string& command) {
  JsonSpans spans(text);
  const auto rootObject = spans.root();
  const auto group = ourGroup<OrderedJson>(event, command);
  const OrderedJson list = OrderedJson::array({group});
  OrderedJson events = OrderedJson::object();
  events[event.name] = list;

  const JsonSpans::Item* hooks = rootObject.find(kHooks);
  if (!hooks) {
    if (on) spans.append(rootObject, kHooks, events);
    return spans.result();
  }
  if (!root[kHooks].is_object()) {
    on ? spans.replace(rootObject, *hooks, events) : spans.remove(rootObject, {hooks});
    return spans.result();
  }
  const auto hooksObject = spans.container(rootObject, *hooks);
  const JsonSpans::Item* groups = hooksObject.find(event.name);
  const Json* values = groupsOf(root, event);
  std::vector<const JsonSpans::Item*> ours;
  std::optional<JsonSpans::Container> array;
  if (groups && values) {
    array = spans.container(hooksObject, *groups);
    for (std::size_t i = 0; i < array->items.size(); ++i) {
      if (isOurs((*values)[i])) ours.push_back(&array->items[i]);
    }
  }

  if (on) {
    if (array) {
      spans.removeAndAppend(*array, ours, group);
    } else if (groups) {
      spans.replace(hooksObject, *groups, list);
    } else {
      spans.append(hooksObject, event.name, list);
    }
  } else if (array && ours.size() < array->items.size()) {
    spans.remove(*array, ours);
  } else if (hooksObject.items.size() > (groups ? 1 : 0)) {
    if (groups) spans.remove(hooksObject, {groups});
  } else {
    spans.remove(rootObject, {hooks});
  }
  return spans.result();
}

}  // namespace

std::optional<Json> parse(std::string_view text) {
  auto root = json::parse(text);
  if (root && !root->is_object()) root.reset();
  return root;
}

std::optional<std::string> wrongKind(const Json& root) {
  if (takesGroups(root, kPermissionRequest)) return std::nullopt;
  return root[kHooks].is_object() ? "\"hooks.PermissionRequest\" is no list" : "\"hooks\" is no object";
}

std::optional<std::string> ourCommand(const Json& root) {
  if (const Json* groups = groupsOf(root, kPermissionRequest)) {
    for (const Json& group : *groups) {
      if (const std::string* command = commandOfOurs(group)) return *command;
    }
  }
  return std::nullopt;
}

std::vector<Event> missing(const Json& root, std::string_view command) {
  const auto isThis = [&](const std::string& one) { return one == command; };
  const auto hasThis = [&](const Json& group) { return findCommand(group, isThis) != nullptr; };
  std::vector<Event> events;
  for (const Event& event : kEvents) {
    const Json* groups = groupsOf(root, event);
    if (takesGroups(root, event) && !(groups && std::ranges::any_of(*groups, hasThis)))
      events.push_back(event);
  }
  return events;
}

Json edited(Json root, bool on, const std::string& command, std::span<const Event> events) {
  if (wrongKind(root)) return root;
  for (const Event& event : events) {
    if (takesGroups(root, event)) root = editedValue(std::move(root), event, on, command);
  }
  return root;
}

std::optional<std::string> editText(std::string_view text, bool on, const std::string& command,
                                    std::span<const Event> events) {
  const auto root = parse(text);
  if (!root) return std::nullopt;
  std::string result(text);
  Json value = *root;
  for (std::size_t i = 0; i < events.size(); ++i) {
    // Out in the other order: what was put in last stands behind the rest.
    const Event& event = events[on ? i : events.size() - 1 - i];
    Json wanted = edited(value, on, command, {&event, 1});
    if (wanted == value) continue;
    std::string changed = editedInPlace(result, value, event, on, command);
    if (json::parse(changed) != wanted) {
      // A key that stands twice, for one: its earlier value would come to light.
      const auto anew = editedValue(OrderedJson::parse(result), event, on, command);
      changed = anew.dump(2, ' ', false, OrderedJson::error_handler_t::replace) + "\n";
    }
    result = std::move(changed);
    value = std::move(wanted);
  }
  return result;
}

}  // namespace ostrel::claudeSettings
