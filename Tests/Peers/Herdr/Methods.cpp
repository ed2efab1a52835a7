// What the server's methods do.
#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

#include <fmt/format.h>

#include "Runtime/Failure.h"
#include "Runtime/Files.h"
#include "Runtime/Text.h"
#include "Server.h"

namespace ostrel::standin {

namespace {

std::string required(const Json& params, std::string_view key) {
  auto value = json::string(params, key);
  if (!value || value->empty()) throw Failure(fmt::format("\"{}\" is missing.", key));
  return *value;
}

std::string shell() {
  const char* shell = std::getenv("SHELL");
  return shell && *shell != 0 ? shell : "/bin/sh";
}

}  // namespace

const std::map<std::string_view, Server::Method>& Server::methods() {
  static const std::map<std::string_view, Method> kMethods = {
      {"ping", &Server::ping},         {"events.subscribe", &Server::subscribe},
      {"pane.read", &Server::read},    {"agent.list", &Server::agents},
      {"standin.read", &Server::read}, {"standin.agents", &Server::agents},
      {"standin.open", &Server::open}, {"standin.report", &Server::report},
      {"standin.move", &Server::move}, {"standin.close", &Server::close},
      {"standin.text", &Server::text}, {"standin.handoff", &Server::handOff},
      {"standin.stop", &Server::stop},
  };
  return kMethods;
}

std::optional<Json> Server::ping(const Request&) {
  return Json{{"type", "pong"}, {"version", "0.8.0"}, {"protocol", kProtocol}};
}

std::optional<Json> Server::subscribe(const Request& request) {
  const Json* list = json::member(request.params, "subscriptions");
  if (!list || !list->is_array() || list->empty()) throw Failure("\"subscriptions\" is missing.");
  std::vector<Subscription> subscriptions;
  for (const Json& each : *list) {
    Subscription subscription{.type = required(each, "type"), .pane = {}, .next = 0};
    if (subscription.type == "pane.agent_status_changed") {
      subscription.pane = pane(each).id;  // one that has gone refuses them all
      subscription.next = nextEvent_;
    }
    subscriptions.push_back(std::move(subscription));
  }
  connections_.at(request.from).subscriptions = std::move(subscriptions);
  if (!pumping_) pumping_ = loop_.after({}, [this] { pump(); });
  return Json{{"type", "subscription_started"}};
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

Pane::Events Server::eventsOf(const std::string& id) {
  return {.titled = [this, id] { emit("pane.updated", id, {{"pane", panes_.at(id)->row()}}); },
          .exited = [this, id] { remove(id, "pane.exited"); }};
}

std::optional<Json> Server::open(const Request& request) {
  const Json& params = request.params;
  const std::string id = fmt::format("w1:p{}", ++panesMade_);
  const std::string folder = json::string(params, "cwd").value_or("/");
  if (!std::filesystem::is_directory(folder)) throw Failure("No such folder: " + folder);
  const Json* command = json::member(params, "command");
  const Pane::Program program{.command = command && !command->empty()
                                             ? command->get<std::vector<std::string>>()
                                             : std::vector<std::string>{shell()},
                              .folder = folder,
                              .variables = {{"HERDR_ENV", "1"},
                                            {"HERDR_SOCKET_PATH", folder_.socket(session_)},
                                            {"HERDR_PANE_ID", id},
                                            {"TERM", "xterm-256color"}}};
  const std::string terminal = fmt::format("term_{:x}", ::getpid() * 1000 + ++terminalsMade_);
  Pane& added =
      *panes_.emplace(id, std::make_unique<Pane>(loop_, id, terminal, program, eventsOf(id))).first->second;
  emit("pane.created", id, {{"pane", added.row()}});
  return Json{{"type", "pane_opened"}, {"pane", added.row()}};
}

Pane& Server::pane(const Json& params) {
  const std::string id = required(params, "pane_id");
  const auto found = panes_.find(id);
  if (found == panes_.end()) throw Failure(fmt::format("pane {} not found", id));
  return *found->second;
}

void Server::remove(const std::string& id, const char* event) {
  const std::string workspace = panes_.at(id)->workspace;
  panes_.erase(id);
  emit(event, id, {{"pane_id", id}, {"workspace_id", workspace}});
}

std::optional<Json> Server::report(const Request& request) {
  Pane& mine = pane(request.params);
  const auto text = [&](const char* key, const std::string& old) {
    return json::string(request.params, key).value_or(old);
  };
  const auto before = std::tuple(mine.title, mine.reference, mine.referenceKind);
  const std::string oldAgent = mine.agent;
  const std::string oldStatus = mine.status;
  mine.title = text("title", mine.title);
  mine.reference = text("session-ref", mine.reference);
  mine.referenceKind = text("session-kind", mine.referenceKind.empty() ? "id" : mine.referenceKind);
  mine.agent = text("agent", mine.agent);
  mine.status = text("status", mine.status.empty() ? "idle" : mine.status);
  if (mine.agent != oldAgent) {
    emit("pane.agent_detected", mine.id,
         {{"pane_id", mine.id}, {"workspace_id", mine.workspace}, {"agent", mine.agent}});
  }
  if (mine.status != oldStatus) {
    ++mine.stateChanges;
    emitStatus(mine);
  }
  if (before != std::tuple(mine.title, mine.reference, mine.referenceKind))
    emit("pane.updated", mine.id, {{"pane", mine.row()}});
  return mine.row();
}

std::optional<Json> Server::move(const Request& request) {
  Pane& mine = pane(request.params);
  mine.terminal = fmt::format("term_{:x}", ::getpid() * 1000 + ++terminalsMade_);
  emit("pane.moved", mine.id, {{"previous_pane_id", mine.id}, {"pane", mine.row()}});
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

// A new program takes over the terminals and listens in our place. The panes' programs stay what they are:
// children of this one, which ends.
std::optional<Json> Server::handOff(const Request&) {
  Json rows = Json::array();
  for (const auto& [id, pane] : panes_) {
    ::fcntl(pane->master(), F_SETFD, 0);
    rows.push_back(pane->saved());
  }
  const std::string file = (folder_.session(session_) / "handoff.json").string();
  folder_.write("sessions/" + session_ + "/handoff.json",
                {{"panes", rows}, {"panes_made", panesMade_}, {"terminals_made", terminalsMade_}});
  listenerWatch_.reset();
  listener_.reset();
  ::unlink(folder_.socket(session_).c_str());
  handedOver_ = true;
  if (::fork() == 0) {
    ::setenv("STANDIN_HERDR_HANDOFF", file.c_str(), 1);
    ::execl("/proc/self/exe", "herdr", "--session", session_.c_str(), "server", nullptr);
    ::_exit(127);
  }
  for (auto& [id, pane] : panes_) pane->leave();
  loop_.stop();
  return std::nullopt;
}

void Server::takeOver(const std::string& file) {
  const Json state = json::parse(files::read(file).value_or("")).value_or(Json::object());
  panesMade_ = state.value("panes_made", 0);
  terminalsMade_ = state.value("terminals_made", 0);
  for (const Json& row : state.value("panes", Json::array())) {
    const std::string id = required(row, "id");
    panes_.emplace(id, std::make_unique<Pane>(loop_, row, eventsOf(id)));
  }
  ::unlink(file.c_str());
  ::unsetenv("STANDIN_HERDR_HANDOFF");
}

std::optional<Json> Server::stop(const Request&) {
  // The connection's end tells that everything is gone: no answer.
  loop_.stop();
  return std::nullopt;
}

}  // namespace ostrel::standin
