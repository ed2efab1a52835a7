#include "Server.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <fmt/format.h>

#include "Herdr/HerdrSocket.h"
#include "Runtime/Failure.h"
#include "Runtime/Files.h"
#include "Runtime/Text.h"

namespace ostrel::standin {

using namespace std::chrono_literals;

namespace {

constexpr Duration kIdleLimit = 600s;

UniqueFd listenAt(const std::string& path) {
  if (path.size() > HerdrSocket::kLongestPath) throw Failure("The socket's path is too long: " + path);
  files::makeFolders(std::filesystem::path(path).parent_path());
  if (isRunning(path)) throw Failure("The session is already running.");
  ::unlink(path.c_str());  // left by a server that was killed
  UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
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
      listener_(listenAt(folder_.socket(session_))),
      signals_(endingSignals()),
      owner_(ownerDescriptor()),
      lastRequest_(loop_.now()) {
  listenerWatch_ = loop_.watch(listener_.get(), {.read = true}, [this](Interest) { accept(); });
  signalWatch_ = loop_.watch(signals_.get(), {.read = true}, [this](Interest) { loop_.stop(); });
  if (owner_) ownerWatch_ = loop_.watch(owner_.get(), {.read = true}, [this](Interest) { loop_.stop(); });
  checkIdle();
}

Server::~Server() {
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
  connection.in.append(bytes, static_cast<std::size_t>(count));
  for (auto end = connection.in.find('\n'); end != std::string::npos; end = connection.in.find('\n')) {
    const std::string line = connection.in.substr(0, end);
    connection.in.erase(0, end + 1);
    receive(id, line);
    if (!connections_.contains(id)) return;
  }
}

void Server::receive(ID id, const std::string& line) {
  lastRequest_ = loop_.now();
  const auto document = json::parse(line);
  if (!document || !document->is_object()) return void(connections_.erase(id));
  if (!connections_.at(id).attached.empty()) return stream(id, *document);
  const Json* params = json::member(*document, "params");
  const Json* requestID = json::member(*document, "id");
  Request request{.from = id,
                  .session = session_,
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
    reply(request, {{"error", {{"message", failure.message()}}}}, fault);
  }
}

void Server::reply(const Request& request, const Json& member, const std::optional<Fault>& fault) {
  Json document = member;
  document["id"] = request.id;
  transmit(request.from, json::dump(document) + "\n", fault);
}

void Server::transmit(ID id, std::string bytes, const std::optional<Fault>& fault) {
  const auto found = connections_.find(id);
  if (found == connections_.end()) return;
  Connection& connection = found->second;
  if (fault) bytes = fault->applied(std::move(bytes));
  connection.out += bytes;
  watch(id);
}

void Server::emit(std::string_view event, const std::string& pane) {
  const Json subscription =
      event == "pane.agent_status_changed" ? Json{{"type", event}, {"pane_id", pane}} : Json{{"type", event}};
  const std::string line = json::dump({{"event", event}, {"data", {{"pane_id", pane}}}}) + "\n";
  for (auto& [id, connection] : connections_) {
    for (const Json& each : connection.subscriptions) {
      if (each != subscription) continue;
      transmit(id, line);
      break;
    }
  }
}

}  // namespace ostrel::standin
