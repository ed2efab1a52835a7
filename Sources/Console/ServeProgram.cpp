#include "ServeProgram.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include <fmt/format.h>

#include "Listing.h"
#include "Runtime/Failure.h"
#include "ServeJson.h"

namespace ostrel::console {

namespace {

constexpr Duration kForever = std::chrono::hours(24 * 365);

template <class T>
Json orNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json();
}

}  // namespace

const std::map<std::string, ServeProgram::Operation, std::less<>> ServeProgram::kOperations = {
    {"select", &ServeProgram::select},
    {"deselect", &ServeProgram::deselect},
    {"rename", &ServeProgram::rename},
    {"link", &ServeProgram::link},
    {"answer", &ServeProgram::answer},
    {"openLink", &ServeProgram::openLink},
    {"connect", &ServeProgram::connect},
    {"disconnect", &ServeProgram::disconnect},
    {"integrations", &ServeProgram::integrations},
    {"quit", &ServeProgram::quit},
};

ServeProgram::ServeProgram(Parts parts, Output output)
    : parts_(parts), output_(std::move(output)), tasks_(parts.loop) {}

void ServeProgram::start() {
  deliveries_ = parts_.client.lit().observe([this] { changed_.raise(); });
  tasks_.start(run());
  parts_.client.restoreConnection();
  changed_.raise();
}

void ServeProgram::line(const std::string& text) {
  if (text.find_first_not_of(" \t\r") == std::string::npos) return;
  const auto request = json::parse(text);
  Json reply{{"event", "reply"}, {"ok", true}};
  try {
    if (!request || !request->is_object()) throw Failure("The line is no JSON object.");
    if (const Json* const id = json::member(*request, "id")) reply["id"] = *id;
    perform(*request);
  } catch (const Failure& failure) {
    reply["ok"] = false;
    reply["message"] = failure.message();
  }
  replies_ += json::dump(reply) + "\n";
  changed_.raise();
}

void ServeProgram::perform(const Json& request) {
  const std::string name = requiredText(request, "op");
  const auto operation = kOperations.find(name);
  if (operation == kOperations.end()) throw Failure(fmt::format("\"{}\" is no operation.", name));
  (this->*operation->second)(request);
}

AgentList::Entry ServeProgram::agentIn(const Json& request) {
  const std::string id = requiredText(request, "agent");
  const auto& listed = parts_.client.inventory().all.entries();
  const auto found = std::ranges::find(listed, id, [](const auto& entry) { return entry->id; });
  if (found == listed.end()) throw Failure("This agent is not there any more.");
  return *found;
}

void ServeProgram::select(const Json& request) {
  parts_.client.select(agentIn(request)->agent, json::boolean(request, "seen").value_or(true));
}

void ServeProgram::rename(const Json& request) {
  parts_.client.rename(agentIn(request)->agent, requiredText(request, "title"));
}

void ServeProgram::link(const Json& request) {
  if (!parts_.client.linkConversation(agentIn(request)->agent, json::string(request, "path")))
    throw Failure("This pane has not told its terminal, so it can't be linked.");
}

void ServeProgram::deselect(const Json&) { parts_.client.selection().clear(); }

void ServeProgram::answer(const Json& request) {
  const std::string id = requiredText(request, "request");
  parts_.client.requests().answer(id, answerIn(request));
}

void ServeProgram::openLink(const Json& request) {
  parts_.client.requests().openLink(requiredText(request, "request"));
}

void ServeProgram::connect(const Json& request) {
  HerdrLink& link = parts_.client.link();
  if (const auto session = json::string(request, "session")) link.sessionName().set(*session);
  if (const auto executable = json::string(request, "executable")) link.executablePath().set(*executable);
  if (json::boolean(request, "managed").value_or(false)) {
    parts_.client.connectManaged();
  } else {
    parts_.client.connect();
  }
}

void ServeProgram::disconnect(const Json& request) {
  parts_.client.disconnect(json::boolean(request, "forget").value_or(true));
}

void ServeProgram::integrations(const Json& request) {
  const Json* const install = json::member(request, "install");
  if (!install) return parts_.client.integrations().check();
  std::vector<std::string> targets;
  for (const Json& target : *install) {
    if (!target.is_string()) throw Failure("\"install\" must be a list of texts.");
    targets.push_back(target.get<std::string>());
  }
  parts_.client.integrations().install(std::move(targets));
}

void ServeProgram::quit(const Json&) { inputEnded(); }

void ServeProgram::inputEnded() {
  over_ = true;
  changed_.raise();
}

Task<void> ServeProgram::run() {
  for (;;) {
    co_await changed_.waitFor(kForever);
    std::string lines = std::exchange(replies_, {});
    for (const auto& [name, event] : events()) {
      std::string line = json::dump(event) + "\n";
      if (sent_[name] == line) continue;
      sent_[name] = line;
      lines += line;
    }
    const bool read =
        lines.empty() || co_await parts_.writer.run([write = output_.write, lines = std::move(lines)](
                                                        std::stop_token stop) { return write(lines, stop); });
    if (!read || over_) {
      output_.finished();
      co_return;
    }
  }
}

std::vector<std::pair<std::string, Json>> ServeProgram::events() {
  HerdrClient& client = parts_.client;
  const SelectedConversation& shown = client.selected().shown();
  const Json selected = orNull(*client.selection().selectedID());
  const HerdrAgent* const open = client.selection().selected();

  Json messages = Json::array();
  for (const AgentTranscriptMessage& message : *shown.transcript) {
    messages.push_back({{"id", message.id},
                        {"role", message.role},
                        {"text", message.text},
                        {"timestamp", orNull(message.timestamp)}});
  }
  const AgentSessionDetails& details = *shown.sessionDetails;
  Json integrations = Json::array();
  for (const HerdrIntegration& integration : *client.integrations().integrations())
    integrations.push_back({{"id", integration.id}, {"state", integration.state}});
  std::vector<std::pair<std::string, Json>> events{
      {"agents", agentsEvent()},
      {"selection",
       {{"event", "selection"},
        {"agent", selected},
        {"label", open ? Json(client.statusLabel(*open)) : Json()}}},
      {"transcript",
       {{"event", "transcript"},
        {"agent", selected},
        {"messages", std::move(messages)},
        {"branch", orNull(details.branch)},
        {"model", orNull(details.model)},
        {"effort", orNull(details.effort)},
        {"notice", orNull(*shown.transcriptNotice)},
        {"loading", *shown.loadingHistory}}},
      {"output",
       {{"event", "output"},
        {"agent", selected},
        {"text", *shown.output},
        {"loaded", *shown.hasLoadedOutput},
        {"error", orNull(*shown.outputError)}}},
      {"integrations",
       {{"event", "integrations"},
        {"integrations", std::move(integrations)},
        {"recommended", client.integrations().recommended(*client.link().agents())},
        {"busy", *client.integrations().busy()},
        {"message", orNull(*client.integrations().message())}}},
  };
  std::ranges::move(requestEvents(), std::back_inserter(events));
  return events;
}

Json ServeProgram::agentsEvent() {
  HerdrClient& client = parts_.client;
  const auto listing = [&](const std::vector<LitAgent>& agents) {
    Listing list;
    for (const LitAgent& lit : agents)
      list.agents.push_back({lit.agent(), lit.agent().displayTitle(parts_.preferences), lit.light, {}});
    return list;
  };
  const LitList& lit = client.lit().list();
  Listing list = listing(lit.agents);
  list.error = *client.local().error();
  list.herdr = client.link().status();
  list.herdrError = *client.link().error();
  Json event = asJsonObject(list);
  event["event"] = "agents";
  event["loadedCodex"] = asJsonObject(listing(lit.loadedCodex))["agents"];
  event["scanned"] = *client.local().scans() > 0;
  return event;
}

std::vector<std::pair<std::string, Json>> ServeProgram::requestEvents() {
  Json claude = Json::array();
  Json codex = Json::array();
  for (const OpenRequest& request : parts_.client.requests().list())
    (request.claude() ? claude : codex).push_back(asObject(request));
  CodexRequestController& controller = parts_.client.codexRequests();
  Json hook;
  if (const ClaudeHookState* const state = parts_.client.hook()) {
    const auto orNothing = [](const std::string& text) { return text.empty() ? Json() : Json(text); };
    hook = {{"wanted", state->wanted},
            {"stands", state->stands},
            {"program", orNothing(state->program)},
            {"problem", orNothing(state->problem)}};
  }
  return {
      {"permissions", {{"event", "permissions"}, {"requests", std::move(claude)}, {"hook", std::move(hook)}}},
      {"codex",
       {{"event", "codex"},
        {"requests", std::move(codex)},
        {"threads", *controller.connectedThreads()},
        {"error", orNull(*controller.error())},
        {"discoveryError", orNull(*parts_.client.codexDiscovery().error())}}}};
}

}  // namespace ostrel::console
