// What the server's methods do.
#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include <fmt/format.h>

#include "Herdr/HerdrProviders.h"
#include "Runtime/Failure.h"
#include "Runtime/Text.h"
#include "Server.h"

namespace ostrel::standin {

using namespace std::chrono_literals;

namespace {

// Programs that watch for pastes take Enter as part of a burst that it follows too closely.
constexpr Duration kBeforeEnter = 150ms;
constexpr Duration kDetectionInterval = 50ms;

std::string required(const Json& params, std::string_view key) {
  auto value = json::string(params, key);
  if (!value || value->empty()) throw Failure(fmt::format("\"{}\" is missing.", key));
  return *value;
}

std::string shell() {
  const char* shell = std::getenv("SHELL");
  return shell && *shell != 0 ? shell : "/bin/sh";
}

// Of base64, what stands ahead of the first character that is not of its alphabet.
std::string decoded(std::string_view text) {
  constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  std::uint32_t group = 0;
  unsigned bits = 0;
  for (const char c : text) {
    const auto value = kAlphabet.find(c);
    if (value == std::string_view::npos) break;
    group = group << 6 | static_cast<std::uint32_t>(value);
    bits += 6;
    if (bits < 8) continue;
    bits -= 8;
    bytes += static_cast<char>(group >> bits & 0xFF);
  }
  return bytes;
}

int size(const Json& params, std::string_view key) {
  const auto value = json::integer(params, key);
  if (!value || *value < 1 || *value > 1000) throw Failure("Unsupported terminal size.");
  return static_cast<int>(*value);
}

}  // namespace

const std::map<std::string_view, Server::Method>& Server::methods() {
  static const std::map<std::string_view, Method> kMethods = {
      {"ping", &Server::ping},
      {"events.subscribe", &Server::subscribe},
      {"pane.read", &Server::read},
      {"standin.read", &Server::read},
      {"standin.agents", &Server::agents},
      {"standin.open", &Server::open},
      {"standin.workspace", &Server::workspace},
      {"standin.report", &Server::report},
      {"standin.move", &Server::move},
      {"standin.close", &Server::close},
      {"standin.prompt", &Server::prompt},
      {"standin.text", &Server::text},
      {"standin.keys", &Server::keys},
      {"standin.start", &Server::start},
      {"standin.attach", &Server::attach},
      {"standin.stop", &Server::stop},
  };
  return kMethods;
}

std::optional<Json> Server::ping(const Request&) { return Json{{"type", "pong"}, {"protocol", kProtocol}}; }

std::optional<Json> Server::subscribe(const Request& request) {
  const Json* list = json::member(request.params, "subscriptions");
  if (!list || !list->is_array()) throw Failure("\"subscriptions\" is missing.");
  connections_.at(request.from).subscriptions = *list;
  return Json{{"type", "subscribed"}};
}

std::optional<Json> Server::read(const Request& request) {
  const auto source = json::string(request.params, "source").value_or("visible");
  const auto lines = json::integer(request.params, "lines").value_or(200);
  Screen& screen = pane(request.params).screen();
  if (source != "visible" && source != "recent") throw Failure("Unknown source: " + source);
  const std::string text =
      source == "visible" ? screen.visible() : screen.recent(static_cast<std::size_t>(std::max(lines, 0l)));
  return Json{{"type", "pane_read"}, {"read", {{"source", source}, {"text", text}}}};
}

std::optional<Json> Server::agents(const Request&) {
  Json rows = Json::array();
  for (const auto& [id, pane] : panes_) {
    if (!pane->agent.empty()) rows.push_back(pane->row());
  }
  return Json{{"type", "agent_list"}, {"agents", std::move(rows)}};
}

Pane& Server::add(const Json& params, std::string workspace) {
  const std::string id = fmt::format("p{}", ++panesMade_);
  const std::string folder = json::string(params, "cwd").value_or(std::filesystem::current_path().string());
  if (!std::filesystem::is_directory(folder)) throw Failure("No such folder: " + folder);
  const Json* command = json::member(params, "command");
  const Pane::Program program{
      .command = command && !command->empty() ? command->get<std::vector<std::string>>()
                                              : std::vector<std::string>{shell()},
      .folder = folder,
      .variables = {{"HERDR_SESSION", session_}, {"HERDR_PANE_ID", id}, {"TERM", "xterm-256color"}}};
  auto pane = std::make_unique<Pane>(loop_, id, fmt::format("t{}", ++terminalsMade_), program,
                                     Pane::Events{.output =
                                                      [this, id](std::string_view bytes) {
                                                        Pane& mine = *panes_.at(id);
                                                        toAttached(mine.terminal, frame(mine, bytes));
                                                      },
                                                  .titled = [this, id] { emit("pane.updated", id); },
                                                  .exited = [this, id] { remove(id, "pane.exited"); }});
  pane->workspace = std::move(workspace);
  Pane& added = *panes_.emplace(id, std::move(pane)).first->second;
  emit("pane.created", id);
  return added;
}

std::optional<Json> Server::open(const Request& request) {
  return Json{{"type", "pane_opened"}, {"pane", add(request.params, "w0").row()}};
}

std::optional<Json> Server::workspace(const Request& request) {
  const std::string id = fmt::format("w{}", ++workspacesMade_);
  const Pane& root = add(request.params, id);
  return Json{
      {"type", "workspace_created"},
      {"workspace", {{"workspace_id", id}, {"label", json::string(request.params, "label").value_or(id)}}},
      {"root_pane", root.row()}};
}

Pane& Server::pane(const Json& params) {
  const std::string id = required(params, "pane_id");
  const auto found = panes_.find(id);
  if (found == panes_.end()) throw Failure(fmt::format("Pane {} was not found.", id));
  return *found->second;
}

Pane* Server::paneOfTerminal(std::string_view terminal) {
  const auto found =
      std::ranges::find_if(panes_, [&](const auto& each) { return each.second->terminal == terminal; });
  return found == panes_.end() ? nullptr : found->second.get();
}

void Server::remove(const std::string& id, const char* event) {
  toAttached(panes_.at(id)->terminal, {{"type", "terminal.closed"}, {"reason", "The pane has closed."}},
             true);
  panes_.erase(id);
  emit(event, id);
}

void Server::detected(Pane& pane, const std::string& agent, const std::string& status) {
  const bool other = pane.agent != agent;
  const bool changed = pane.status != status;
  pane.agent = agent;
  pane.status = status;
  if (other) emit("pane.agent_detected", pane.id);
  if (changed) emit("pane.agent_status_changed", pane.id);
}

std::optional<Json> Server::report(const Request& request) {
  Pane& mine = pane(request.params);
  const auto text = [&](const char* key, const std::string& old) {
    return json::string(request.params, key).value_or(old);
  };
  const auto before = std::tuple(mine.title, mine.reference, mine.referenceKind);
  mine.title = text("title", mine.title);
  mine.reference = text("session-ref", mine.reference);
  mine.referenceKind = text("session-kind", mine.referenceKind.empty() ? "id" : mine.referenceKind);
  detected(mine, text("agent", mine.agent), text("status", mine.status.empty() ? "idle" : mine.status));
  if (before != std::tuple(mine.title, mine.reference, mine.referenceKind)) emit("pane.updated", mine.id);
  return mine.row();
}

std::optional<Json> Server::move(const Request& request) {
  Pane& mine = pane(request.params);
  toAttached(mine.terminal, {{"type", "terminal.closed"}, {"reason", "The pane has another terminal."}},
             true);
  mine.terminal = fmt::format("t{}", ++terminalsMade_);
  emit("pane.moved", mine.id);
  return mine.row();
}

std::optional<Json> Server::close(const Request& request) {
  const std::string id = pane(request.params).id;
  remove(id, "pane.closed");
  return Json{{"type", "pane_closed"}, {"pane_id", id}};
}

std::optional<Json> Server::text(const Request& request) {
  Pane& mine = pane(request.params);
  mine.type(required(request.params, "text"));
  return Json{{"type", "text_sent"}, {"pane_id", mine.id}};
}

std::optional<Json> Server::keys(const Request& request) {
  Pane& mine = pane(request.params);
  for (const Json& key : request.params.value("keys", Json::array())) {
    if (!mine.screen().key(key.get<std::string>())) throw Failure("Unknown key: " + key.get<std::string>());
  }
  return Json{{"type", "keys_sent"}, {"pane_id", mine.id}};
}

std::optional<Json> Server::prompt(const Request& request) {
  Pane& mine = pane(request.params);
  if (mine.agent.empty()) throw Failure(fmt::format("Pane {} has no agent.", mine.id));
  mine.screen().paste(required(request.params, "text"));
  later(kBeforeEnter, [this, request] {
    const auto found = panes_.find(required(request.params, "pane_id"));
    if (found == panes_.end()) return reply(request, {{"error", {{"message", "The pane has closed."}}}});
    found->second->screen().key("enter");
    reply(request, {{"type", "agent_prompted"}, {"pane_id", found->first}});
  });
  return std::nullopt;
}

std::optional<Json> Server::start(const Request& request) {
  Pane& mine = pane(request.params);
  const HerdrProvider* provider = HerdrProvider::find(required(request.params, "kind"));
  if (!provider) throw Failure("Unknown kind of agent.");
  mine.name = required(request.params, "name");
  mine.type(required(request.params, "line") + "\r");
  const auto limit = json::integer(request.params, "timeout").value_or(30'000);
  awaitAgent(request, std::string(provider->executable), loop_.now() + std::chrono::milliseconds(limit));
  return std::nullopt;
}

void Server::awaitAgent(const Request& request, const std::string& executable, TimePoint end) {
  const auto fail = [&](const char* words) { reply(request, {{"error", {{"message", words}}}}); };
  const auto found = panes_.find(required(request.params, "pane_id"));
  if (found == panes_.end()) return fail("The pane has closed.");
  Pane& mine = *found->second;
  if (mine.agent.empty() && mine.foregroundName() == executable)
    detected(mine, required(request.params, "kind"), mine.status.empty() ? "idle" : mine.status);
  if (!mine.agent.empty()) {
    return reply(request, {{"result", {{"type", "agent_started"}, {"agent", mine.row()}}}});
  }
  if (loop_.now() >= end) return fail("The agent was not detected in time.");
  later(kDetectionInterval, [this, request, executable, end] { awaitAgent(request, executable, end); });
}

std::optional<Json> Server::stop(const Request&) {
  // The connection's end tells that everything is gone: no answer.
  loop_.stop();
  return std::nullopt;
}

std::optional<Json> Server::attach(const Request& request) {
  const std::string terminal = required(request.params, "terminal_id");
  Pane* const mine = paneOfTerminal(terminal);
  if (!mine) throw Failure(fmt::format("Terminal {} was not found.", terminal));
  mine->resize(size(request.params, "cols"), size(request.params, "rows"));
  connections_.at(request.from).attached = terminal;
  reply(request, {{"result", {{"type", "attached"}}}});
  transmit(request.from, json::dump(frame(*mine, mine->screen().repaint())) + "\n");
  return std::nullopt;
}

Json Server::frame(Pane& pane, std::string_view bytes) const {
  return {{"type", "terminal.frame"},
          {"encoding", "ansi"},
          {"bytes", text::base64(bytes)},
          {"width", pane.screen().columns()},
          {"height", pane.screen().rows()}};
}

void Server::toAttached(const std::string& terminal, const Json& record, bool last) {
  for (auto& [id, connection] : connections_) {
    if (connection.attached != terminal) continue;
    if (last) connection.closing = true;
    transmit(id, json::dump(record) + "\n");
  }
}

void Server::stream(ID id, const Json& record) {
  Pane* const mine = paneOfTerminal(connections_.at(id).attached);
  const auto type = json::string(record, "type").value_or("");
  if (!mine) return;
  const auto number = [&](const char* key) {
    return static_cast<int>(json::integer(record, key).value_or(0));
  };
  if (type == "terminal.input") {
    mine->type(decoded(json::string(record, "bytes").value_or("")));
  } else if (type == "terminal.resize") {
    mine->resize(std::clamp(number("cols"), 1, 1000), std::clamp(number("rows"), 1, 1000));
    toAttached(mine->terminal, frame(*mine, mine->screen().repaint()));
  } else if (type == "terminal.release") {
    connections_.erase(id);
  }
}

}  // namespace ostrel::standin
