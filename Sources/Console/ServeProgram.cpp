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

const std::array<ServeProgram::Topic, ServeProgram::kTopics> ServeProgram::kTopicTable = {{
    {"agents", &ServeProgram::agentsEvent},
    {"selection", &ServeProgram::selectionEvent},
    {"transcript", &ServeProgram::transcriptEvent},
    {"output", &ServeProgram::outputEvent},
    {"integrations", &ServeProgram::integrationsEvent},
    {"permissions", &ServeProgram::permissionsEvent},
    {"codex", &ServeProgram::codexEvent},
}};

ServeProgram::ServeProgram(Parts parts, Output output)
    : parts_(parts), output_(std::move(output)), tasks_(parts.loop) {
  stale_.set();
}

void ServeProgram::start() {
  follow();
  tasks_.start(run());
  parts_.client.restoreConnection();
  changed_.raise();
}

// Which change makes what out of date.
void ServeProgram::follow() {
  HerdrClient& client = parts_.client;
  const auto on = [this](auto& source, std::initializer_list<Which> topics) {
    std::vector<Which> all = topics;
    subscriptions_.push_back(source.observe([this, all = std::move(all)] {
      for (const Which topic : all) stale_.set(topic);
      changed_.raise();
    }));
  };
  // A request names the agent that asks, and a label depends on its agent's state.
  on(client.agents(), {agents, selected, permissions, codex});
  on(client.report(), {agents, permissions, codex});
  on(client.open(), {selected, transcript, output});
  on(client.herdr(), {setup});
  on(client.requests(), {permissions, codex});
  const SelectedConversation& shown = client.open().shown();
  const auto also = [this](std::vector<Subscription> more) {
    std::ranges::move(more, std::back_inserter(subscriptions_));
  };
  also(shown.observeConversation([this] {
    stale_.set(transcript);
    changed_.raise();
  }));
  also(shown.observeOutput([this] {
    stale_.set(output);
    changed_.raise();
  }));
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

void ServeProgram::select(const Json& request) {
  parts_.client.actions().open(requiredText(request, "agent"), json::boolean(request, "seen").value_or(true));
}

void ServeProgram::rename(const Json& request) {
  parts_.client.actions().rename(requiredText(request, "agent"), requiredText(request, "title"));
}

void ServeProgram::link(const Json& request) {
  const std::string agent = requiredText(request, "agent");
  if (const auto path = json::string(request, "path")) {
    parts_.client.actions().link(agent, *path);
  } else {
    parts_.client.actions().unlink(agent);
  }
}

void ServeProgram::deselect(const Json&) { parts_.client.actions().close(); }

void ServeProgram::answer(const Json& request) {
  const std::string id = requiredText(request, "request");
  parts_.client.requests().answer(id, answerIn(request));
}

void ServeProgram::openLink(const Json& request) {
  parts_.client.requests().openLink(requiredText(request, "request"));
}

void ServeProgram::connect(const Json& request) {
  HerdrConnection& herdr = parts_.client.herdr();
  if (const auto session = json::string(request, "session")) herdr.setSession(*session);
  if (const auto executable = json::string(request, "executable")) herdr.setExecutable(*executable);
  if (json::boolean(request, "managed").value_or(false)) {
    herdr.connectManaged();
  } else {
    herdr.connect();
  }
}

void ServeProgram::disconnect(const Json& request) {
  parts_.client.herdr().disconnect(json::boolean(request, "forget").value_or(true));
}

void ServeProgram::integrations(const Json& request) {
  const Json* const install = json::member(request, "install");
  if (!install) return parts_.client.herdr().checkIntegrations();
  std::vector<std::string> targets;
  for (const Json& target : *install) {
    if (!target.is_string()) throw Failure("\"install\" must be a list of texts.");
    targets.push_back(target.get<std::string>());
  }
  parts_.client.herdr().install(std::move(targets));
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
    for (std::size_t topic = 0; topic < kTopics; ++topic) {
      if (!stale_[topic]) continue;
      stale_.reset(topic);
      Json event = (this->*kTopicTable[topic].make)();
      event["event"] = kTopicTable[topic].event;
      std::string line = json::dump(event) + "\n";
      if (sent_[topic] == line) continue;
      sent_[topic] = line;
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

Json ServeProgram::agentsEvent() {
  const auto listing = [&](const std::vector<LitAgent>& agents) {
    Listing list;
    for (const LitAgent& lit : agents)
      list.agents.push_back({lit.agent(), lit.agent().displayTitle(parts_.preferences), lit.light, {}});
    return list;
  };
  const LitList& lit = parts_.client.agents().list();
  const SourceReport& report = *parts_.client.report();
  Listing list = listing(lit.agents);
  list.error = report.scan;
  list.herdr = report.herdrStatus;
  list.herdrError = report.herdr;
  Json event = asJsonObject(list);
  event["loadedCodex"] = asJsonObject(listing(lit.loadedCodex))["agents"];
  event["scanned"] = report.scanned;
  return event;
}

// The id of the open agent, or null.
Json ServeProgram::openID() const {
  const auto agent = parts_.client.open().agent();
  return agent ? Json(agent->id()) : Json();
}

Json ServeProgram::selectionEvent() {
  const ConversationSource& open = parts_.client.open();
  const auto agent = open.agent();
  return {{"agent", openID()}, {"label", agent ? Json(open.statusLabel(*agent)) : Json()}};
}

Json ServeProgram::transcriptEvent() {
  const SelectedConversation& shown = parts_.client.open().shown();
  Json messages = Json::array();
  for (const AgentTranscriptMessage& message : *shown.transcript) {
    messages.push_back({{"id", message.id},
                        {"role", message.role},
                        {"text", message.text},
                        {"timestamp", orNull(message.timestamp)}});
  }
  const AgentSessionDetails& details = *shown.sessionDetails;
  return {{"agent", openID()},
          {"messages", std::move(messages)},
          {"branch", orNull(details.branch)},
          {"model", orNull(details.model)},
          {"effort", orNull(details.effort)},
          {"notice", orNull(*shown.transcriptNotice)},
          {"loading", *shown.loadingHistory}};
}

Json ServeProgram::outputEvent() {
  const SelectedConversation& shown = parts_.client.open().shown();
  return {{"agent", openID()},
          {"text", *shown.output},
          {"loaded", *shown.hasLoadedOutput},
          {"error", orNull(*shown.outputError)}};
}

Json ServeProgram::integrationsEvent() {
  const HerdrFacts facts = parts_.client.herdr().facts();
  Json integrations = Json::array();
  for (const HerdrIntegration& integration : facts.integrations)
    integrations.push_back({{"id", integration.id}, {"state", integration.state}});
  return {{"integrations", std::move(integrations)},
          {"recommended", facts.recommended},
          {"busy", facts.integrationsBusy},
          {"message", orNull(facts.integrationMessage)}};
}

Json ServeProgram::permissionsEvent() {
  Json requests = Json::array();
  for (const OpenRequest& request : parts_.client.requests().list()) {
    if (request.claude()) requests.push_back(asObject(request));
  }
  Json hook;
  if (const auto& state = parts_.client.report()->hook) {
    const auto orNothing = [](const std::string& text) { return text.empty() ? Json() : Json(text); };
    hook = {{"wanted", state->wanted},
            {"stands", state->stands},
            {"program", orNothing(state->program)},
            {"problem", orNothing(state->problem)}};
  }
  return {{"requests", std::move(requests)}, {"hook", std::move(hook)}};
}

Json ServeProgram::codexEvent() {
  Json requests = Json::array();
  for (const OpenRequest& request : parts_.client.requests().list()) {
    if (request.codex()) requests.push_back(asObject(request));
  }
  const SourceReport& report = *parts_.client.report();
  return {{"requests", std::move(requests)},
          {"threads", report.codexThreads},
          {"error", orNull(report.codexRequests)},
          {"discoveryError", orNull(report.codex)}};
}

}  // namespace ostrel::console
