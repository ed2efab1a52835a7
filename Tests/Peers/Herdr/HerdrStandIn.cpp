#include "HerdrStandIn.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <unistd.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "Herdr/HerdrProtocol.h"
#include "Runtime/Failure.h"
#include "Runtime/Files.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace fs = std::filesystem;

HerdrStandIn::HerdrStandIn() {
  fs::create_directories(bin());
  fs::create_directories(home());
  fs::create_symlink(OSTREL_PEERS_BIN_DIR "/herdr", executable());
  environment_ = {{"PATH", bin().string() + ":/usr/bin:/bin"},
                  {"HOME", home().string()},
                  {"SHELL", "/bin/sh"},
                  {"LANG", "C.UTF-8"},
                  {"STANDIN_HERDR_HOME", folder_.path().string()},
                  {"STANDIN_HERDR_OWNER", std::to_string(::getpid())}};
}

HerdrStandIn::~HerdrStandIn() {
  // A failure is no harm: the servers end with this program at the latest.
  try {
    run({"session", "stop", "--all"});
  } catch (const std::exception&) {
  }
}

std::string HerdrStandIn::socket(const std::string& session) const {
  return (folder_.path() / "sessions" / session / "socket").string();
}

ChildProcess::Finished HerdrStandIn::run(const std::vector<std::string>& arguments) const {
  std::vector<std::string> command = {executable()};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return runCommand(command, environment_);
}

ChildProcess::Finished HerdrStandIn::run(const std::string& session,
                                         std::vector<std::string> arguments) const {
  arguments.insert(arguments.begin(), {"--session", session});
  return run(arguments);
}

Json HerdrStandIn::result(const std::string& session, const std::vector<std::string>& arguments) const {
  const auto finished = run(session, arguments);
  if (finished.status != 0) {
    throw std::runtime_error(
        fmt::format("herdr {}: {}{}", fmt::join(arguments, " "), finished.output, finished.errors));
  }
  return finished.output.empty() ? Json() : HerdrProtocol::result(finished.output);
}

void HerdrStandIn::start(const std::string& session) { result(session, {"session", "start"}); }

void HerdrStandIn::stop(const std::string& session) { result(session, {"session", "stop"}); }

HerdrStandIn::Pane HerdrStandIn::open(const std::string& session, const std::vector<std::string>& command,
                                      const std::string& cwd) {
  std::vector<std::string> words = {"pane", "open", "--cwd", cwd, "--"};
  words.insert(words.end(), command.begin(), command.end());
  const Json opened = result(session, words).at("pane");
  return {opened.at("pane_id"), opened.at("terminal_id")};
}

void HerdrStandIn::report(const std::string& session, const Pane& pane, const Report& report) {
  std::vector<std::string> words = {"pane", "report", "--pane", pane.id};
  for (const auto& [option, value] : {std::pair("--agent", report.agent),
                                      {"--status", report.status},
                                      {"--title", report.title},
                                      {"--session-ref", report.reference},
                                      {"--session-kind", report.referenceKind}}) {
    if (!value.empty()) words.insert(words.end(), {option, value});
  }
  result(session, words);
}

void HerdrStandIn::move(const std::string& session, Pane& pane) {
  pane.terminal = result(session, {"pane", "move", pane.id}).at("terminal_id");
}

void HerdrStandIn::handOff(const std::string& session) { result(session, {"server", "live-handoff"}); }

pid_t HerdrStandIn::server(const std::string& session) const {
  const auto file = folder_.path() / "sessions" / session / "pid";
  return static_cast<pid_t>(text::parseInteger(text::trim(files::read(file).value_or(""))).value_or(0));
}

void HerdrStandIn::setFaults(const Json& list) {
  files::replace(folder_.path() / "faults.json", json::dumpPretty(list));
}

void HerdrStandIn::setIntegrations(const Json& states) {
  files::replace(folder_.path() / "integrations.json", json::dumpPretty(states));
}

std::vector<std::string> HerdrStandIn::commands() const {
  const std::string log = files::read(folder_.path() / "commands.log").value_or("");
  std::vector<std::string> lines;
  for (const std::string_view line : text::split(log, '\n')) {
    if (!line.empty()) lines.emplace_back(line);
  }
  return lines;
}

std::size_t HerdrStandIn::processes() const {
  const auto all = commands();
  return static_cast<std::size_t>(
      std::ranges::count_if(all, [](const std::string& line) { return !line.starts_with("socket "); }));
}

}  // namespace ostrel
