#include "App/RunningCopy.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

#include "Runtime/Failure.h"
#include "Runtime/PeerUser.h"
#include "Runtime/UnixSocket.h"

namespace ostrel {

namespace {

namespace fs = std::filesystem;

bool sendAll(int fd, std::string_view bytes) {
  return ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

}  // namespace

Json RunningCopy::identity(const fs::path& executable, const std::string& version,
                           const Environment& environment) {
  struct stat file{};
  const bool known = ::stat("/proc/self/exe", &file) == 0;
  return {{"executable", executable.string()},
          {"file", known ? std::to_string(file.st_dev) + ":" + std::to_string(file.st_ino) : ""},
          {"version", version},
          {"display", environment.variable("DISPLAY").value_or("")}};
}

fs::path RunningCopy::socketPath(const Environment& environment) {
  return environment.folder("XDG_DATA_HOME", ".local/share") / "ostrel" / "program.sock";
}

bool RunningCopy::ask(const fs::path& path, const Json& identity) {
  const UniqueFd fd = unixSocket::make(unixSocket::Mode::nonBlocking);
  if (!fd || unixSocket::connect(fd, path.string()) ||
      !sendAll(fd.get(), Json{{"show", identity}}.dump() + "\n"))
    return false;
  std::string reply;
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (reply.find('\n') == std::string::npos && reply.size() < kLongestLine) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
    pollfd ready{.fd = fd.get(), .events = POLLIN, .revents = 0};
    const int count = left > 0 ? ::poll(&ready, 1, static_cast<int>(left)) : 0;
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    char block[512];
    const ssize_t got = ::recv(fd.get(), block, sizeof block, 0);
    if (got <= 0) return false;
    reply.append(block, static_cast<std::size_t>(got));
  }
  const auto answer = json::parse(reply);
  return answer && json::boolean(*answer, "shown") == true;
}

RunningCopy::RunningCopy(MainLoop& loop, fs::path path, Json identity, std::function<void()> show)
    : loop_(loop), path_(std::move(path)), identity_(std::move(identity)), show_(std::move(show)) {}

void RunningCopy::start() {
  const auto address = unixSocket::address(path_.string());
  listener_ = unixSocket::make(unixSocket::Mode::nonBlocking);
  if (!address || !listener_) return;
  std::error_code error;
  fs::create_directories(path_.parent_path(), error);
  // Of what is no socket we keep our hands off.
  struct stat info{};
  if (::lstat(path_.c_str(), &info) == 0 && (!S_ISSOCK(info.st_mode) || ::unlink(path_.c_str()) != 0)) return;
  // Before the bind, so that there is no moment at which others could connect.
  ::fchmod(listener_.get(), 0600);
  if (::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0 ||
      ::listen(listener_.get(), kMostAsking) != 0)
    return;
  try {
    watch_ = loop_.watch(listener_.get(), {.read = true}, [this](Interest) { accept(); });
  } catch (const Failure&) {
    listener_.reset();
  }
}

void RunningCopy::accept() {
  UniqueFd fd(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!fd || !isOurUser(fd.get()) || asking_.size() >= kMostAsking) return;
  const int key = next_++;
  Asking& asking = asking_[key];
  asking.fd = std::move(fd);
  try {
    asking.watch = loop_.watch(asking.fd.get(), {.read = true}, [this, key](Interest) { read(key); });
    asking.deadline = loop_.after(kPatience, [this, key] { asking_.erase(key); });
  } catch (const Failure&) {
    asking_.erase(key);
  }
}

void RunningCopy::read(int key) {
  Asking& asking = asking_.at(key);
  char block[4096];
  const ssize_t count = ::recv(asking.fd.get(), block, sizeof block, 0);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (count > 0) asking.bytes.append(block, static_cast<std::size_t>(count));
  const auto end = asking.bytes.find('\n');
  if (count > 0 && end == std::string::npos && asking.bytes.size() < kLongestLine) return;
  const Asking ended = std::move(asking);
  asking_.erase(key);
  if (end != std::string::npos) answer(ended, std::string_view(ended.bytes).substr(0, end));
}

void RunningCopy::answer(const Asking& asking, std::string_view line) {
  const auto question = json::parse(line);
  const bool alike =
      question && question->is_object() && question->contains("show") && question->at("show") == identity_;
  if (sendAll(asking.fd.get(), Json{{"shown", alike}}.dump() + "\n") && alike) show_();
}

}  // namespace ostrel
