#include "Herdr/HerdrProtocol.h"

#include <algorithm>
#include <set>
#include <utility>

#include "Conversations/AgentTranscript.h"
#include "Herdr/HerdrProviders.h"
#include "Runtime/Failure.h"
#include "Runtime/Text.h"

namespace ostrel::HerdrProtocol {

namespace {

constexpr std::size_t kLongestID = 4096;    // bytes
constexpr std::size_t kLongestWords = 300;  // bytes of what Herdr says of a failure

// A member that is an object, else nothing.
const Json* object(const Json& parent, std::string_view key) {
  const Json* value = json::member(parent, key);
  return value && value->is_object() ? value : nullptr;
}

// A list of objects, else a failure with these words.
const Json& listOfObjects(const Json& parent, std::string_view key, const char* otherwise) {
  const Json* list = json::member(parent, key);
  if (!list || !list->is_array() ||
      !std::ranges::all_of(*list, [](const Json& item) { return item.is_object(); })) {
    throw Failure(otherwise);
  }
  return *list;
}

// The first of several places that holds a text.
std::optional<std::string> firstText(std::initializer_list<std::pair<const Json*, std::string_view>> places) {
  for (const auto& [parent, key] : places) {
    if (!parent) continue;
    if (auto text = json::string(*parent, key)) return text;
  }
  return std::nullopt;
}

HerdrAgent agent(const Json& row, const Json& pane, std::string paneID) {
  HerdrAgent agent;
  agent.title = firstText({{object(pane, "presentation"), "title"},
                           {&pane, "title"},
                           {&pane, "terminal_title_stripped"},
                           {&row, "name"}})
                    .value_or(paneID);
  agent.paneID = std::move(paneID);
  agent.provider = firstText({{&pane, "agent"}, {&row, "agent"}}).value_or("Agent");
  agent.state =
      stateNamed(firstText({{&pane, "agent_status"}, {&row, "agent_status"}, {&row, "status"}}).value_or(""));
  agent.context = firstText({{&pane, "foreground_cwd"}, {&pane, "cwd"}, {&pane, "workspace_id"}})
                      .value_or("Local session");
  agent.terminalID = json::string(pane, "terminal_id");
  const Json* conversation = object(pane, "agent_session");
  if (!conversation) conversation = object(row, "agent_session");
  if (conversation) {
    agent.transcriptReference = json::string(*conversation, "value");
    agent.transcriptKind = json::string(*conversation, "kind");
  }
  return agent;
}

// The first line that says something.
std::string shown(std::string_view words) {
  std::string_view line = text::trim(words);
  line = text::trim(line.substr(0, line.find('\n')));
  if (line.size() > kLongestWords) line = line.substr(0, kLongestWords);
  return line.empty() ? "Herdr request failed." : text::escapeControls(text::repairUtf8(line));
}

bool isValidID(std::string_view provider, const std::string& id) {
  const HerdrProvider* row = HerdrProvider::find(provider);
  if (!row || !row->integration || id.empty() || id.starts_with('-') || id.size() > kLongestID ||
      text::hasControlCharacter(id)) {
    return false;
  }
  return (provider != "codex" && provider != "claude") || text::canonicalUuid(id).has_value();
}

}  // namespace

Refusal::Refusal(std::string_view words, std::string_view code)
    : Failure(shown(words)),
      notFound_(code.ends_with("not_found") || text::lowercase(words).contains("not found")) {}

Json result(std::string_view data) {
  auto document = json::parse(data);
  if (!document || !document->is_object()) throw Failure("Herdr returned an unsupported response.");
  if (const Json* error = object(*document, "error")) {
    throw Refusal(json::string(*error, "message").value_or("Herdr request failed."),
                  json::string(*error, "code").value_or(""));
  }
  if (const Json* inner = object(*document, "result")) return *inner;
  return std::move(*document);
}

std::vector<std::string> sessions(std::string_view data) {
  const Json document = result(data);
  std::set<std::string> running;
  for (const Json& session : listOfObjects(document, "sessions", "Unsupported Herdr session-list format.")) {
    const auto name = json::string(session, "name");
    const auto runs = json::boolean(session, "running");
    if (!runs || !name || name->empty() || name->starts_with('-'))
      throw Failure("Invalid Herdr session record.");
    if (*runs) running.insert(*name);
  }
  return {running.begin(), running.end()};
}

std::map<std::string, std::string> sockets(std::string_view data) {
  std::map<std::string, std::string> found;
  for (std::string& name : sessions(data)) found.emplace(std::move(name), "");
  const Json document = result(data);
  for (const Json& session : listOfObjects(document, "sessions", "")) {
    const auto place = found.find(json::string(session, "name").value_or(""));
    const auto path = json::string(session, "socket_path");
    if (place != found.end() && path && path->starts_with('/')) place->second = *path;
  }
  return found;
}

std::vector<HerdrAgent> agents(std::string_view data, const std::string& session,
                               const std::optional<HerdrMachine>& machine) {
  return agentsIn(result(data), session, machine);
}

std::vector<HerdrAgent> agentsIn(const Json& document, const std::string& session,
                                 const std::optional<HerdrMachine>& machine) {
  std::vector<HerdrAgent> list;
  std::set<std::string> seen;
  for (const Json& row :
       listOfObjects(document, "agents",
                     "This Herdr version has an unsupported agent-list format. Check its CLI/API version.")) {
    const Json* nested = object(row, "pane");
    const Json& pane = nested ? *nested : row;
    auto paneID = json::string(pane, "pane_id");
    if (!paneID || paneID->empty() || paneID->starts_with('-') || !seen.insert(*paneID).second) {
      throw Failure("Herdr returned a missing or duplicate pane identifier.");
    }
    list.push_back(agent(row, pane, std::move(*paneID)));
    list.back().session = session;
    list.back().machine = machine;
  }
  return list;
}

std::string output(std::string_view data) { return outputIn(result(data)); }

std::string outputIn(const Json& document) {
  const Json* inner = object(document, "read");
  const Json& read = inner ? *inner : document;
  if (auto text = firstText({{&read, "text"}, {&read, "content"}, {&read, "output"}})) return *text;
  const Json* lines = json::member(read, "lines");
  if (!lines || !lines->is_array() ||
      !std::ranges::all_of(*lines, [](const Json& line) { return line.is_string(); })) {
    throw Failure("This Herdr version has an unsupported output format.");
  }
  std::string text;
  for (const Json& line : *lines) {
    if (&line != &lines->front()) text += '\n';
    text += line.get_ref<const std::string&>();
  }
  return text;
}

bool canPrompt(const std::optional<HerdrAgent>& current, const HerdrAgent& expected) {
  return current && expected.terminalID && current->id() == expected.id() &&
         current->terminalID == expected.terminalID && current->provider == expected.provider &&
         (current->state == AgentState::idle || current->state == AgentState::done);
}

bool sameConversation(const std::optional<std::string>& reference, const std::optional<std::string>& other,
                      std::string_view provider) {
  if (!reference) return false;
  if (provider != "codex" && provider != "claude") return reference == other;
  return conversationID(*reference) == (other ? conversationID(*other) : std::nullopt);
}

bool isHookManager(std::string_view screen) {
  constexpr std::string_view kMarks[] = {"Lifecycle hooks from config and enabled plugins", "esc close",
                                         "enter review"};
  return std::ranges::all_of(
      kMarks, [&](std::string_view mark) { return screen.find(mark) != std::string_view::npos; });
}

std::vector<std::string> resumeArguments(std::string_view provider, const std::optional<std::string>& id) {
  if (!id)
    return provider == "codex" ? std::vector<std::string>{"--", "--no-daemon"} : std::vector<std::string>{};
  if (!isValidID(provider, *id)) {
    throw Failure(
        "Enter the exact conversation UUID for Codex/Claude, or the provider’s saved ID or session path.");
  }
  constexpr std::string_view kDefaultAgent = "default:";
  if (provider == "codex") return {"--", "resume", *id, "--no-daemon"};
  if (provider == "copilot") return {"--", "--resume=" + *id};
  if (provider == "pi") return {"--", "--session", *id};
  if (provider == "mastracode") return {"--", "--thread", *id};
  if (provider == "agy") return {"--", "--conversation", *id};
  if (provider == "letta" && id->starts_with(kDefaultAgent) && id->size() > kDefaultAgent.size()) {
    return {"--", "--conversation", "default", "--agent", id->substr(kDefaultAgent.size())};
  }
  if (provider == "letta") return {"--", "--conversation", *id};
  return {"--", "--resume", *id};
}

}  // namespace ostrel::HerdrProtocol
