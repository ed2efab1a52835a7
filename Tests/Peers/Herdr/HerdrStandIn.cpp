#include "HerdrStandIn.h"

#include <cstdlib>
#include <stdexcept>
#include <unistd.h>

#include <fmt/format.h>

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

ChildProcess::Finished HerdrStandIn::run(const Place& place, std::vector<std::string> arguments) const {
  arguments.insert(arguments.begin(), place.prefix.begin(), place.prefix.end());
  return run(arguments);
}

Json HerdrStandIn::result(const Place& place, std::vector<std::string> arguments) const {
  const auto finished = run(place, arguments);
  if (finished.status != 0) {
    throw std::runtime_error(
        fmt::format("herdr {}: {}{}", fmt::join(arguments, " "), finished.output, finished.errors));
  }
  return finished.output.empty() ? Json() : HerdrProtocol::result(finished.output);
}

void HerdrStandIn::start(const Place& place) { result(place, {"session", "start"}); }

void HerdrStandIn::stop(const Place& place) { result(place, {"session", "stop"}); }

HerdrStandIn::Pane HerdrStandIn::open(const Place& place, const std::vector<std::string>& command,
                                      const std::string& cwd) {
  std::vector<std::string> words = {"pane", "open", "--cwd", cwd, "--"};
  words.insert(words.end(), command.begin(), command.end());
  const Json opened = result(place, words).at("pane");
  return {opened.at("pane_id"), opened.at("terminal_id")};
}

void HerdrStandIn::report(const Place& place, const Pane& pane, const Report& report) {
  std::vector<std::string> words = {"pane", "report", "--pane", pane.id};
  for (const auto& [option, value] : {std::pair("--agent", report.agent),
                                      {"--status", report.status},
                                      {"--title", report.title},
                                      {"--session-ref", report.reference},
                                      {"--session-kind", report.referenceKind}}) {
    if (!value.empty()) words.insert(words.end(), {option, value});
  }
  result(place, words);
}

void HerdrStandIn::move(const Place& place, Pane& pane) {
  pane.terminal = result(place, {"pane", "move", pane.id}).at("terminal_id");
}

void HerdrStandIn::setFaults(const Json& list, const Place& place) {
  const bool remote = place.prefix.front() == "--machine";
  const fs::path folder = remote ? folder_.path() / "machines" / place.prefix.back() : folder_.path();
  files::replace(folder / "faults.json", json::dumpPretty(list));
}

void HerdrStandIn::setMachines(const std::vector<HerdrMachine>& machines) {
  Json rows = Json::array();
  for (const HerdrMachine& machine : machines) {
    rows.push_back({{"id", machine.id},
                    {"label", machine.label},
                    {"target", machine.target},
                    {"session", machine.session},
                    {"enabled", machine.enabled}});
  }
  files::replace(folder_.path() / "machines.json", json::dumpPretty(rows));
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

}  // namespace ostrel
