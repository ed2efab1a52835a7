#include "Server.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <fmt/format.h>

#include "LocalSocket.h"
#include "Runtime/Failure.h"
#include "Runtime/Files.h"
#include "Runtime/Text.h"

namespace ostrel::standin {

using namespace std::chrono_literals;

namespace {

constexpr Duration kIdleLimit = 600s;
constexpr Duration kBetweenEvents = 100ms;
constexpr std::size_t kKeptEvents = 512;
constexpr std::size_t kLongestPath = 107;  // bytes of `sun_path`

UniqueFd listenFor(const StateFolder& folder, const std::string& session) {
  const std::string path = folder.socket(session);
  if (path.size() > kLongestPath) throw Failure("The socket's path is too long: " + path);
  files::makeFolders(std::filesystem::path(path).parent_path());
  if (isRunning(path)) throw Failure("The session is already running.");
  ::unlink(path.c_str());  // left by a server that was killed
  UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  folder.write("sessions/" + session + "/pid", ::getpid());
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  if (::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(fd.get(), 64) != 0) {
    throw Failure::ofErrno("Could not listen at " + path, errno);
  }
  return fd;
}

UniqueFd endingSignals() {
  sigset_t set;
  ::sigemptyset(&set);
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) ::sigaddset(&set, number);
  ::sigprocmask(SIG_BLOCK, &set, nullptr);
  return UniqueFd(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
}

}  // namespace

Server::Server(StateFolder folder, std::string session)
    : folder_(std::move(folder)),
      session_(std::move(session)),
      listener_(listenFor(folder_, session_)),
      signals_(endingSignals()),
      owner_(ownerDescriptor()),
      lastRequest_(loop_.now()) {
  listenerWatch_ = loop_.watch(listener_.get(), {.read = true}, [this](Interest) { accept(); });
  signalWatch_ = loop_.watch(signals_.get(), {.read = true}, [this](Interest) { loop_.stop(); });
  if (owner_) ownerWatch_ = loop_.watch(owner_.get(), {.read = true}, [this](Interest) { loop_.stop(); });
  if (const char* const file = std::getenv("STANDIN_HERDR_HANDOFF")) takeOver(file);
  checkIdle();
}

Server::~Server() {
  if (handedOver_) return;
  panes_.clear();
  ::unlink(folder_.socket(session_).c_str());
}

void Server::run() { loop_.run(); }

void Server::checkIdle() {
  const Duration left = lastRequest_ + kIdleLimit - loop_.now();
  if (left <= 0s) return loop_.stop();
  later(left, [this] { checkIdle(); });
}

void Server::later(Duration delay, MainLoop::Work work) {
  const ID id = nextID_++;
  timers_[id] = loop_.after(delay, [this, id, work = std::move(work)]() mutable {
    MainLoop::Work mine = std::move(work);
    timers_.erase(id);
    mine();
  });
}

void Server::accept() {
  for (;;) {
    UniqueFd fd(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!fd) return;
    const ID id = nextID_++;
    connections_[id].fd = std::move(fd);
    watch(id);
  }
}

void Server::watch(ID id) {
  Connection& connection = connections_.at(id);
  connection.watch.reset();
  connection.watch = loop_.watch(connection.fd.get(), {.read = true, .write = !connection.out.empty()},
                                 [this, id](Interest interest) { ready(id, interest); });
}

void Server::ready(ID id, Interest interest) {
  Connection& connection = connections_.at(id);
  if (interest.write) {
    const ssize_t sent =
        ::send(connection.fd.get(), connection.out.data(), connection.out.size(), MSG_NOSIGNAL);
    if (sent > 0) connection.out.erase(0, static_cast<std::size_t>(sent));
    const bool broken = sent < 0 && errno != EAGAIN;
    if (broken || (connection.out.empty() && connection.closing)) return void(connections_.erase(id));
    if (connection.out.empty()) watch(id);
  }
  if (!interest.read) return;
  char bytes[16'384];
  const ssize_t count = ::recv(connection.fd.get(), bytes, sizeof bytes, 0);
  if (count < 0 && errno == EAGAIN) return;
  if (count <= 0) return void(connections_.erase(id));
  if (connection.asked) return;  // nothing behind the one request is read
  connection.in.append(bytes, static_cast<std::size_t>(count));
  const auto end = connection.in.find('\n');
  if (end == std::string::npos) return;
  connection.asked = true;
  receive(id, connection.in.substr(0, end));
}

void Server::receive(ID id, const std::string& line) {
  lastRequest_ = loop_.now();
  const auto document = json::parse(line);
  if (!document || !document->is_object()) return void(connections_.erase(id));
  const Json* params = json::member(*document, "params");
  const Json* requestID = json::member(*document, "id");
  Request request{.from = id,
                  .method = json::string(*document, "method").value_or(""),
                  .id = requestID ? *requestID : Json(),
                  .params = params ? *params : Json::object()};
  std::optional<Fault> fault;
  if (!request.method.starts_with("standin.")) {
    folder_.log(fmt::format("socket {} {}", session_, request.method));
    fault = folder_.fault(request.method, session_);
  }
  if (fault && fault->silence && !fault->answer) return;
  try {
    const auto method = methods().find(request.method);
    if (method == methods().end()) throw Failure("Unknown method: " + request.method);
    if (auto result = (this->*method->second)(request))
      reply(request, {{"result", std::move(*result)}}, fault);
  } catch (const Failure& failure) {
    const bool missing = failure.message().ends_with("not found");
    reply(request,
          {{"error", {{"code", missing ? "pane_not_found" : "bad_request"}, {"message", failure.message()}}}},
          fault);
  }
}

void Server::reply(const Request& request, const Json& member, const std::optional<Fault>& fault) {
  Json document = member;
  document["id"] = request.id;
  std::string bytes = json::dump(document) + "\n";
  if (fault) bytes = fault->applied(std::move(bytes));
  connections_.at(request.from).closing = connections_.at(request.from).subscriptions.empty();
  transmit(request.from, bytes);
}

void Server::transmit(ID id, const std::string& bytes) {
  connections_.at(id).out += bytes;
  watch(id);
}

// Plain events are named with an underscore on the wire, those of a pane's status with dots.
void Server::emit(const std::string& type, const std::string& pane, Json data) {
  std::string name = type;
  if (type != "pane.agent_status_changed") {
    std::ranges::replace(name, '.', '_');
    data["type"] = name;
  }
  events_.push_back({nextEvent_++, type, pane, json::dump({{"event", name}, {"data", data}}) + "\n"});
  if (events_.size() > kKeptEvents) events_.pop_front();
  if (!pumping_) pumping_ = loop_.after(kBetweenEvents, [this] { pump(); });
}

void Server::emitStatus(const Pane& pane) {
  emit("pane.agent_status_changed", pane.id,
       {{"pane_id", pane.id},
        {"workspace_id", pane.workspace},
        {"agent_status", pane.status},
        {"agent", pane.agent}});
}

void Server::pump() {
  pumping_.reset();
  bool more = false;
  for (auto& [id, connection] : connections_) {
    for (Subscription& each : connection.subscriptions) more |= sendNext(id, each);
  }
  if (more) pumping_ = loop_.after(kBetweenEvents, [this] { pump(); });
}

// Whether it may have more to send.
bool Server::sendNext(ID id, Subscription& subscription) {
  for (const Event& event : events_) {
    if (event.number < subscription.next || event.type != subscription.type) continue;
    if (!subscription.pane.empty() && event.pane != subscription.pane) continue;
    subscription.next = event.number + 1;
    transmit(id, event.line);
    return true;
  }
  subscription.next = nextEvent_;
  return false;
}

}  // namespace ostrel::standin
