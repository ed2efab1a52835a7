#include "Claude/ClaudeSettings.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "Claude/JsonSpans.h"

namespace ostrel::claudeSettings {

namespace {

using OrderedJson = nlohmann::ordered_json;

constexpr char kHooks[] = "hooks";
constexpr char kEvent[] = "PermissionRequest";
constexpr std::string_view kOurMark = "--permission-hook";
constexpr int kHookTime = 600;  // seconds, after which Claude Code ends the hook

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

const Json* groupsOf(const Json& root) {
  const Json* hooks = json::member(root, kHooks);
  return hooks ? listIn(*hooks, kEvent) : nullptr;
}

template <class J>
J ourGroup(const std::string& command) {
  J hook = J::object();
  hook["type"] = "command";
  hook["command"] = command;
  hook["timeout"] = kHookTime;
  J group = J::object();
  group["matcher"] = "";
  group[kHooks] = J::array({std::move(hook)});
  return group;
}

template <class J>
J editedValue(J root, bool on, const std::string& command) {
  const auto found = root.find(kHooks);
  J hooks = found != root.end() && found->is_object() ? *found : J::object();
  J kept = J::array();
  if (const J* groups = listIn(hooks, kEvent))
    std::ranges::copy_if(*groups, std::back_inserter(kept), [](const J& group) { return !isOurs(group); });
  if (on) kept.push_back(ourGroup<J>(command));
  if (kept.empty()) {
    hooks.erase(kEvent);
  } else {
    hooks[kEvent] = std::move(kept);
  }
  if (hooks.empty()) {
    root.erase(kHooks);
  } else {
    root[kHooks] = std::move(hooks);
  }
  return root;
}

// The edit in place. The text must have been parsed to `root`.
std::string editedInPlace(std::string_view text, const Json& root, bool on, const std::string& command) {
  JsonSpans spans(text);
  const auto rootObject = spans.root();
  const auto group = ourGroup<OrderedJson>(command);
  const OrderedJson list = OrderedJson::array({group});
  OrderedJson event = OrderedJson::object();
  event[kEvent] = list;

  const JsonSpans::Item* hooks = rootObject.find(kHooks);
  if (!hooks) {
    if (on) spans.append(rootObject, kHooks, event);
    return spans.result();
  }
  if (!root[kHooks].is_object()) {
    on ? spans.replace(rootObject, *hooks, event) : spans.remove(rootObject, {hooks});
    return spans.result();
  }
  const auto hooksObject = spans.container(rootObject, *hooks);
  const JsonSpans::Item* groups = hooksObject.find(kEvent);
  const Json* values = groupsOf(root);
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
      spans.append(hooksObject, kEvent, list);
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
  const Json* hooks = json::member(root, kHooks);
  if (!hooks || hooks->is_null()) return std::nullopt;
  if (!hooks->is_object()) return "\"hooks\" is no object";
  const Json* groups = json::member(*hooks, kEvent);
  if (!groups || groups->is_null() || groups->is_array()) return std::nullopt;
  return "\"hooks.PermissionRequest\" is no list";
}

std::optional<std::string> ourCommand(const Json& root) {
  if (const Json* groups = groupsOf(root)) {
    for (const Json& group : *groups) {
      if (const std::string* command = commandOfOurs(group)) return *command;
    }
  }
  return std::nullopt;
}

bool hasCommand(const Json& root, std::string_view command) {
  const Json* groups = groupsOf(root);
  return groups && std::ranges::any_of(*groups, [&](const Json& group) {
           return findCommand(group, [&](const std::string& one) { return one == command; }) != nullptr;
         });
}

Json edited(Json root, bool on, const std::string& command) {
  if (wrongKind(root)) return root;
  return editedValue(std::move(root), on, command);
}

std::optional<std::string> editText(std::string_view text, bool on, const std::string& command) {
  const auto root = parse(text);
  if (!root) return std::nullopt;
  const Json wanted = edited(*root, on, command);
  if (wanted == *root) return std::string(text);
  std::string result = editedInPlace(text, *root, on, command);
  if (json::parse(result) == wanted) return result;
  // A key that stands twice, for one: its earlier value would come to light.
  const auto anew = editedValue(OrderedJson::parse(text), on, command);
  return anew.dump(2, ' ', false, OrderedJson::error_handler_t::replace) + "\n";
}

}  // namespace ostrel::claudeSettings
