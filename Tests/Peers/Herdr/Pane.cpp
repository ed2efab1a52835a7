#include "Pane.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <fmt/format.h>

#include "Runtime/Failure.h"
#include "Runtime/Files.h"
#include "Runtime/Spawn.h"
#include "Runtime/Text.h"

namespace ostrel::standin {

namespace {

constexpr unsigned short kColumns = 100;
constexpr unsigned short kRows = 30;

// This program's own variables below those of the pane.
std::map<std::string, std::string> environmentWith(std::map<std::string, std::string> variables) {
  for (char** each = environ; *each; ++each) {
    const std::string_view pair = *each;
    variables.emplace(pair.substr(0, pair.find('=')), pair.substr(std::min(pair.find('=') + 1, pair.size())));
  }
  return variables;
}

std::vector<pid_t> processesOfSession(pid_t session) {
  std::vector<pid_t> found;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
    const auto process = text::parseInteger(entry.path().filename().string());
    const auto stat = process ? files::read(entry.path() / "stat") : std::unexpected(ENOENT);
    if (!stat || stat->rfind(") ") == std::string::npos) continue;
    // Behind the name: state, parent, process group, session.
    const auto fields = text::words(std::string_view(*stat).substr(stat->rfind(") ") + 2), 5);
    if (fields.size() == 5 && text::parseInteger(fields[3]) == session)
      found.push_back(static_cast<pid_t>(*process));
  }
  return found;
}

}  // namespace

Pane::Pane(MainLoop& loop, std::string id_, std::string terminal_, const Program& program, Events events)
    : id(std::move(id_)),
      terminal(std::move(terminal_)),
      loop_(loop),
      events_(std::move(events)),
      screen_(kColumns, kRows, [this](std::string_view bytes) { type(bytes); }) {
  const ExecWords words(program.command, environmentWith(program.variables));
  const winsize size{.ws_row = kRows, .ws_col = kColumns, .ws_xpixel = 0, .ws_ypixel = 0};
  int started[2];  // closed by the exec, so that the pane's row is true from the start
  if (::pipe2(started, O_CLOEXEC) != 0) throw Failure::ofErrno("Could not open a pane", errno);
  const UniqueFd reader(started[0]);
  UniqueFd writer(started[1]);
  int master = -1;
  pid_ = ::forkpty(&master, nullptr, nullptr, &size);
  if (pid_ < 0) throw Failure::ofErrno("Could not open a pane", errno);
  if (pid_ == 0) {
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    if (::chdir(program.folder.c_str()) == 0) ::execvpe(words.path(), words.command(), words.environment());
    ::_exit(127);
  }
  master_.reset(master);
  writer.reset();
  char none;
  [[maybe_unused]] const auto end = ::read(reader.get(), &none, 1);
  follow();
}

Pane::Pane(MainLoop& loop, const Json& saved, Events events)
    : id(saved.at("id")),
      terminal(saved.at("terminal")),
      stateChanges(saved.at("state_changes")),
      agent(saved.at("agent")),
      status(saved.at("status")),
      title(saved.at("title")),
      reference(saved.at("reference")),
      referenceKind(saved.at("reference_kind")),
      loop_(loop),
      events_(std::move(events)),
      screen_(kColumns, kRows, [this](std::string_view bytes) { type(bytes); }),
      pid_(saved.at("pid")),
      master_(saved.at("master").get<int>()) {
  screen_.feed(saved.at("screen").get<std::string>());
  follow();
}

Json Pane::saved() const {
  return {{"id", id},
          {"terminal", terminal},
          {"state_changes", stateChanges},
          {"agent", agent},
          {"status", status},
          {"title", title},
          {"reference", reference},
          {"reference_kind", referenceKind},
          {"screen", screen_.repaint()},
          {"pid", pid_},
          {"master", master_.get()}};
}

void Pane::follow() {
  ::fcntl(master_.get(), F_SETFD, FD_CLOEXEC);
  ::fcntl(master_.get(), F_SETFL, O_NONBLOCK);
  process_.reset(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
  listen();
  exitWatch_ = loop_.watch(process_.get(), {.read = true}, [this](Interest) {
    exitWatch_.reset();
    drain();                                                               // its last words
    exitCall_ = loop_.after({}, [exited = events_.exited] { exited(); });  // ends this pane
  });
}

Pane::~Pane() {
  terminalWatch_.reset();
  exitWatch_.reset();
  if (pid_ <= 0) return;
  // The leader too is waited for only afterwards, so that the session's number stays its own.
  for (const pid_t process : processesOfSession(pid_)) ::kill(process, SIGKILL);
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

void Pane::listen() {
  terminalWatch_.reset();
  terminalWatch_ = loop_.watch(master_.get(), {.read = true, .write = !typed_.empty()},
                               [this](Interest interest) { ready(interest); });
}

void Pane::ready(Interest interest) {
  if (interest.read) drain();
  if (interest.write && terminalWatch_) flush();
}

void Pane::drain() {
  const std::string before = screen_.title();
  char bytes[16'384];
  for (;;) {
    const ssize_t count = ::read(master_.get(), bytes, sizeof bytes);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && errno == EAGAIN) break;
    if (count <= 0) {  // nobody has the terminal open any more
      terminalWatch_.reset();
      break;
    }
    const std::string_view chunk(bytes, static_cast<std::size_t>(count));
    screen_.feed(chunk);
  }
  if (screen_.title() != before) events_.titled();
}

void Pane::type(std::string_view bytes) {
  const bool idle = typed_.empty();
  typed_ += bytes;
  if (idle) flush();
}

void Pane::flush() {
  const bool waited = !typed_.empty();
  while (!typed_.empty()) {
    const ssize_t count = ::write(master_.get(), typed_.data(), typed_.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    typed_.erase(0, static_cast<std::size_t>(count));
  }
  if (waited && terminalWatch_) listen();
}

pid_t Pane::foreground() const { return ::tcgetpgrp(master_.get()); }

std::string Pane::folderOf(pid_t process) const {
  std::error_code error;
  return std::filesystem::read_symlink(fmt::format("/proc/{}/cwd", process), error).string();
}

Json Pane::row() const {
  Json row{{"pane_id", id},
           {"terminal_id", terminal},
           {"workspace_id", workspace},
           {"tab_id", workspace + ":t1"},
           {"focused", false},
           {"interactive_ready", true},
           {"state_change_seq", stateChanges},
           {"state_labels", Json::object()}};
  const std::pair<const char*, std::string> texts[] = {{"agent", agent},
                                                       {"display_agent", agent},
                                                       {"agent_status", status},
                                                       {"title", title},
                                                       {"terminal_title_stripped", screen_.title()},
                                                       {"cwd", folderOf(pid_)},
                                                       {"foreground_cwd", folderOf(foreground())}};
  for (const auto& [key, value] : texts) {
    if (!value.empty()) row[key] = value;
  }
  if (!reference.empty()) {
    row["agent_session"] = {
        {"agent", agent}, {"source", "herdr:" + agent}, {"kind", referenceKind}, {"value", reference}};
  }
  return row;
}

}  // namespace ostrel::standin
