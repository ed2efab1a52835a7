#include "Claude/ClaudePermissionServer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "Claude/PermissionSocket.h"
#include "Runtime/Failure.h"
#include "Runtime/PeerUser.h"
#include "Runtime/Random.h"

namespace ostrel {

namespace {

constexpr int kBacklog = 16;
constexpr std::size_t kBlock = 16'384;  // bytes received at once
// Blocks and connections served before other callbacks of the loop get their turn.
constexpr int kBlocksPerTurn = 16;
constexpr int kAcceptsPerTurn = 16;
// How long no connection is taken when the system has no descriptor for it.
constexpr Duration kShortage = std::chrono::seconds(1);

UniqueFd unixSocket() { return UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)); }

enum class Occupant { nobody, server, somethingElse };

// Who is at `path`. A socket file without a listener counts as nobody: it was left by a crash.
Occupant occupant(const std::string& path, const sockaddr_un& address) {
  struct stat info;
  if (::lstat(path.c_str(), &info) != 0) return errno == ENOENT ? Occupant::nobody : Occupant::somethingElse;
  if (!S_ISSOCK(info.st_mode)) return Occupant::somethingElse;
  const UniqueFd probe = unixSocket();
  if (!probe) return Occupant::somethingElse;
  // Refused: nobody listens. Any other failure (a full queue, say) means that somebody does.
  if (::connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
      errno != ECONNREFUSED)
    return Occupant::server;
  return Occupant::nobody;
}

}  // namespace

ClaudePermissionServer::ClaudePermissionServer(MainLoop& loop, std::string path, Capture capture)
    : loop_(loop), path_(std::move(path)), capture_(std::move(capture)) {}

ClaudePermissionServer::~ClaudePermissionServer() { close(); }

void ClaudePermissionServer::start() {
  if (listener_ || path_.empty() || path_.size() >= permissionSocket::kRoom) return;
  retry_.reset();
  const Occupant found = occupant(path_, permissionSocket::address(path_.c_str()));
  taken_.set(found == Occupant::server);
  switch (found) {
    case Occupant::server:
      retry_ = loop_.after(kTakenRetry, [this] { start(); });
      return;
    case Occupant::somethingElse:
      return;
    case Occupant::nobody:
      break;
  }
  if (!bindListener()) {
    listener_.reset();
    return;
  }
  watchListener();
}

bool ClaudePermissionServer::bindListener() {
  const sockaddr_un address = permissionSocket::address(path_.c_str());
  ::unlink(path_.c_str());
  listener_ = unixSocket();
  if (!listener_) return false;
  // Before the bind, so that there is no moment at which others could connect.
  ::fchmod(listener_.get(), 0600);
  struct stat info;
  if (::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::lstat(path_.c_str(), &info) != 0)
    return false;
  device_ = info.st_dev;
  inode_ = info.st_ino;
  return ::listen(listener_.get(), kBacklog) == 0;
}

void ClaudePermissionServer::watchListener() {
  try {
    listenerWatch_ = loop_.watch(listener_.get(), {.read = true}, [this](Interest) { acceptWaiting(); });
  } catch (const Failure&) {
    retry_ = loop_.after(kShortage, [this] { watchListener(); });
  }
}

void ClaudePermissionServer::acceptWaiting() {
  for (int i = 0; i < kAcceptsPerTurn; ++i) {
    UniqueFd fd(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!fd) {
      if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        // The connection stays in the queue, where it would wake us without end.
        listenerWatch_.reset();
        retry_ = loop_.after(kShortage, [this] { watchListener(); });
      }
      return;
    }
    if (!isOurUser(fd.get()) || connections_.size() >= kMostConnections) continue;
    const Key key = nextKey_++;
    connections_[key].fd = std::move(fd);
    if (watch(key, {.read = true}, &ClaudePermissionServer::readMore)) expectBytes(key);
  }
}

bool ClaudePermissionServer::watch(Key key, Interest interest, void (ClaudePermissionServer::*ready)(Key)) {
  const auto found = connections_.find(key);
  Connection& connection = found->second;
  connection.watch.reset();  // one watch for a descriptor at a time
  try {
    connection.watch =
        loop_.watch(connection.fd.get(), interest, [this, key, ready](Interest) { (this->*ready)(key); });
    return true;
  } catch (const Failure&) {
    connections_.erase(found);
    return false;
  }
}

void ClaudePermissionServer::expectBytes(Key key) {
  connections_.at(key).deadline = loop_.after(kLineTime, [this, key] { connections_.erase(key); });
}

void ClaudePermissionServer::readMore(Key key) {
  const auto found = connections_.find(key);
  std::string& bytes = found->second.bytes;
  for (int i = 0; i < kBlocksPerTurn; ++i) {
    const std::size_t before = bytes.size();
    bytes.resize(before + kBlock);
    const ssize_t count = ::recv(found->second.fd.get(), bytes.data() + before, kBlock, 0);
    const int error = errno;
    bytes.resize(before + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (count < 0 && error == EINTR) continue;
    if (count < 0 && error == EAGAIN) return;
    const bool complete = count > 0 && bytes.find('\n', before) != std::string::npos;
    if (complete) return received(key);
    if (count <= 0 || bytes.size() >= kLongestLine) {
      connections_.erase(found);
      return;
    }
    expectBytes(key);
  }
}

void ClaudePermissionServer::received(Key key) {
  Connection& connection = connections_.at(key);
  const std::string bytes = std::exchange(connection.bytes, {});
  auto request = ClaudePermissionRequest::parse(bytes, randomUuid(), loop_.now());
  if (!request) {
    connections_.erase(key);
    forms_.take(bytes, loop_.now());  // the last step: an observer may stop us
    return;
  }
  connection.requestID = request->id;
  connection.deadline.reset();
  if (!watch(key, {.hangup = true}, &ClaudePermissionServer::hungUp)) return;
  auto list = requests_.get();
  list.push_back(*std::move(request));
  requests_.set(std::move(list));
}

void ClaudePermissionServer::hungUp(Key key) { finish(connections_.at(key).requestID, std::nullopt); }

void ClaudePermissionServer::answer(const ClaudePermissionRequest& request, const Answer& answer) {
  if (capture_) capture_("prompt_answered", {{"agent", "claude"}, {"answer", answer.name()}});
  finish(request.id, answer.reply(request));
}

void ClaudePermissionServer::finish(std::string id, const std::optional<Json>& reply) {
  auto list = requests_.get();
  if (std::erase_if(list, [&](const ClaudePermissionRequest& request) { return request.id == id; }) == 0)
    return;
  const auto found = std::ranges::find(
      connections_, id, [](const auto& entry) -> const std::string& { return entry.second.requestID; });
  if (reply) {
    found->second.bytes = json::dump(*reply) + "\n";
    writeMore(found->first);
  } else {
    connections_.erase(found);
  }
  requests_.set(std::move(list));  // the last step: an observer may stop us
}

void ClaudePermissionServer::writeMore(Key key) {
  const auto found = connections_.find(key);
  Connection& connection = found->second;
  while (!connection.bytes.empty()) {
    const ssize_t sent =
        ::send(connection.fd.get(), connection.bytes.data(), connection.bytes.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 0 && errno == EAGAIN) {
      watch(key, {.write = true}, &ClaudePermissionServer::writeMore);
      return;
    }
    if (sent <= 0) break;
    connection.bytes.erase(0, static_cast<std::size_t>(sent));
  }
  connections_.erase(found);
}

void ClaudePermissionServer::reconcilePermissions(const StateOf& stateOf) {
  const TimePoint now = loop_.now();
  const auto open = requests_.get();  // a copy: each end changes the list
  for (const ClaudePermissionRequest& request : open) {
    if (now - request.arrived <= kStateLag) continue;
    const auto seen = stateOf(request.sessionID);
    if (seen && seen->at >= request.arrived && seen->state != AgentState::blocked)
      finish(request.id, std::nullopt);
  }
  forms_.reconcile(stateOf, now, kStateLag);
}

void ClaudePermissionServer::stop() {
  close();
  taken_.set(false);
  requests_.set({});
  forms_.clear();
}

void ClaudePermissionServer::close() {
  retry_.reset();
  connections_.clear();
  if (!listener_) return;
  listenerWatch_.reset();
  listener_.reset();
  // Another instance may have put its own in the place of ours.
  struct stat info;
  if (::lstat(path_.c_str(), &info) == 0 && info.st_dev == device_ && info.st_ino == inode_)
    ::unlink(path_.c_str());
}

}  // namespace ostrel
