#include "CommandLine.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <map>
#include <poll.h>
#include <sys/wait.h>
#include <thread>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "Herdr/HerdrProtocol.h"
#include "Herdr/HerdrProviders.h"
#include "LocalSocket.h"
#include "Runtime/Failure.h"
#include "Runtime/Files.h"
#include "Runtime/Text.h"
#include "Server.h"
#include "StateFolder.h"

namespace ostrel::standin {

namespace {

using namespace std::chrono_literals;

struct Call {
  StateFolder folder;
  std::string session;
  std::vector<std::string> words{};              // behind the command's own
  std::map<std::string, std::string> options{};  // by name without dashes
  std::vector<std::string> rest{};               // behind "--"

  const std::string& word(std::size_t at) const {
    if (at >= words.size()) throw Failure("An argument is missing.");
    return words[at];
  }
  std::string option(const std::string& name, std::string otherwise = "") const {
    const auto found = options.find(name);
    return found == options.end() ? otherwise : found->second;
  }
  std::int64_t number(const std::string& name, std::int64_t otherwise) const {
    return text::parseInteger(option(name)).value_or(otherwise);
  }
};

struct Answer {
  std::string output;
  int status = 0;
};

Answer document(const Json& value) { return {json::dump(value) + "\n", value.contains("error") ? 1 : 0}; }

Answer failed(std::string_view message) { return document({{"error", {{"message", message}}}}); }

// Asks the session's server; its line is the command's output.
Answer ask(const Call& call, std::string_view method, const Json& params) {
  const std::string line = request(call.folder.socket(call.session), method, params);
  const auto reply = json::parse(line);
  if (!reply) return failed("The session's server has hung up.");
  return {line + "\n", reply->contains("error") ? 1 : 0};
}

Answer paneAnswer(const Call& call, std::string_view method, Json params = Json::object()) {
  params["pane_id"] = call.word(0);
  return ask(call, method, params);
}

Answer sessionList(const Call& call) {
  std::vector<std::string> names = call.folder.sessions();
  if (std::ranges::find(names, "default") == names.end()) names.insert(names.begin(), "default");
  Json rows = Json::array();
  for (const std::string& name : names) {
    const std::string socket = call.folder.socket(name);
    rows.push_back({{"name", name},
                    {"default", name == "default"},
                    {"running", isRunning(socket)},
                    {"session_dir", call.folder.session(name).string()},
                    {"socket_path", socket}});
  }
  return document({{"sessions", rows}});
}

Answer serve(const Call& call) {
  Server(call.folder, call.session).run();
  return {};
}

// The server that listens next takes over the panes of this one.
Answer liveHandoff(const Call& call) {
  request(call.folder.socket(call.session), "standin.handoff", Json::object());
  while (!isRunning(call.folder.socket(call.session))) std::this_thread::sleep_for(5ms);
  return {};
}

// Starts a server that this command doesn't wait for, and waits until it listens.
Answer sessionStart(const Call& call) {
  const std::string name = call.words.empty() ? call.session : call.word(0);
  files::makeFolders(call.folder.session(name));
  if (isRunning(call.folder.socket(name))) return failed("The session is already running.");
  ::setenv("STANDIN_HERDR_HOME", call.folder.path().c_str(), 1);
  const std::string log = call.folder.session(name) / "log";
  // By its true name, which others see in the process table.
  const std::string own = std::filesystem::read_symlink("/proc/self/exe");
  const pid_t server = ::fork();
  if (server == 0) {
    ::setsid();
    const int none = ::open("/dev/null", O_RDWR);
    const int errors = ::open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::dup2(none, 0);
    ::dup2(none, 1);
    ::dup2(errors, 2);
    ::execl(own.c_str(), "herdr", "--session", name.c_str(), "server", nullptr);
    ::_exit(127);
  }
  while (!isRunning(call.folder.socket(name))) {
    if (::waitpid(server, nullptr, WNOHANG) == server)
      return failed("The server ended: " + files::read(log).value_or(""));
    std::this_thread::sleep_for(5ms);
  }
  return {};
}

void stopSession(const StateFolder& folder, const std::string& name) {
  try {
    request(folder.socket(name), "standin.stop", Json::object());
  } catch (const Failure&) {  // not running
  }
}

Answer sessionStop(const Call& call) {
  if (call.options.contains("all")) {
    for (const std::string& name : call.folder.sessions()) stopSession(call.folder, name);
  } else {
    stopSession(call.folder, call.words.empty() ? call.session : call.word(0));
  }
  return {};
}

Answer paneRead(const Call& call) {
  const std::string source = call.option("source", "visible");
  Answer answer =
      paneAnswer(call, "standin.read", {{"source", source}, {"lines", call.number("lines", 200)}});
  if (answer.status == 0) answer.output = HerdrProtocol::output(answer.output);
  return answer;
}

Answer paneReport(const Call& call) {
  Json params = Json::object();
  for (const auto& [name, value] : call.options) params[name] = value;
  const char* own = std::getenv("HERDR_PANE_ID");
  params["pane_id"] = call.option("pane", own ? own : "");
  Answer answer = ask(call, "standin.report", params);
  if (answer.status == 0) answer.output.clear();  // it would stand on the pane's screen
  return answer;
}

// The targets of Herdr's integrations, in the order in which it lists them.
std::vector<std::string> targets() {
  std::vector<std::string> known;
  for (const HerdrProvider& provider : HerdrProvider::all()) {
    if (provider.integration && *provider.integration != "qwen" && *provider.integration != "letta")
      known.emplace_back(*provider.integration);
  }
  return known;
}

Answer integrationStatus(const Call& call) {
  const Json states = call.folder.read("integrations.json", Json::object());
  std::string text;
  for (const std::string& target : targets()) {
    text += fmt::format("{}: {} (/opt/{})\n", target, json::string(states, target).value_or("not installed"),
                        target);
  }
  return {text};
}

Answer integrationInstall(const Call& call) {
  Json states = call.folder.read("integrations.json", Json::object());
  const std::string& target = call.word(0);
  const std::vector<std::string> known = targets();
  if (std::ranges::find(known, target) == known.end())
    return {"unknown integration target: " + target + "\n", 2};
  const char* const home = std::getenv("HOME");
  const auto folder = std::filesystem::path(home ? home : "/") / ("." + target);
  if (!std::filesystem::is_directory(folder)) {
    return {
        fmt::format("{0} config directory not found at {1}. install {0} first\n", target, folder.string()),
        1};
  }
  states[target] = "current (1.0)";
  call.folder.write("integrations.json", states);
  return {"installed\n"};
}

struct Command {
  std::string_view name;
  bool raw;  // texts follow, which may look like options
  std::function<Answer(const Call&)> run;
};

const std::vector<Command>& commands() {
  static const std::vector<Command> kCommands = {
      {"api schema", false,
       [](const Call&) { return document({{"protocol", kProtocol}, {"schemas", Json::object()}}); }},
      {"server live-handoff", false, liveHandoff},
      {"server", false, serve},
      {"session list", false, sessionList},
      {"session start", false, sessionStart},
      {"session stop", false, sessionStop},
      {"agent list", false, [](const Call& call) { return ask(call, "standin.agents", Json::object()); }},
      {"pane read", false, paneRead},
      {"pane send-text", true,
       [](const Call& call) { return paneAnswer(call, "standin.text", {{"text", call.word(1)}}); }},
      {"pane close", false, [](const Call& call) { return paneAnswer(call, "standin.close"); }},
      {"pane move", false, [](const Call& call) { return paneAnswer(call, "standin.move"); }},
      {"pane open", false,
       [](const Call& call) {
         return ask(call, "standin.open", {{"cwd", call.option("cwd", "/")}, {"command", call.rest}});
       }},
      {"pane report", false, paneReport},
      {"integration status", false, integrationStatus},
      {"integration install", false, integrationInstall},
  };
  return kCommands;
}

void parse(Call& call, const std::vector<std::string>& words, std::size_t from, bool raw) {
  for (std::size_t i = from; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (raw || !word.starts_with("--")) {
      call.words.push_back(word);
    } else if (word == "--") {
      call.rest.assign(words.begin() + static_cast<std::ptrdiff_t>(i) + 1, words.end());
      return;
    } else if (word == "--json" || word == "--all" || i + 1 == words.size()) {
      call.options[word.substr(2)] = "";
    } else {
      call.options[word.substr(2)] = words[++i];
    }
  }
}

// Waits as a hung program does, but not longer than the test that it hangs for.
[[noreturn]] void hang() {
  const UniqueFd owner = ownerDescriptor();
  pollfd ended{.fd = owner.get(), .events = POLLIN, .revents = 0};
  ::poll(&ended, 1, 600'000);
  ::_exit(1);
}

int finish(Answer answer, const std::optional<Fault>& fault) {
  if (fault) {
    answer.output = fault->applied(std::move(answer.output));
    answer.status = fault->exit.value_or(answer.status);
  }
  std::fwrite(answer.output.data(), 1, answer.output.size(), stdout);
  std::fflush(stdout);
  return answer.status;
}

// Inside a pane, that of the pane.
std::string usualSession() {
  const char* const socket = std::getenv("HERDR_SOCKET_PATH");
  return socket ? std::filesystem::path(socket).parent_path().filename().string() : "default";
}

int dispatch(const std::vector<std::string>& words) {
  Call call{.folder = StateFolder::fromEnvironment(), .session = usualSession()};
  call.folder.log(fmt::format("{}", fmt::join(words, " ")));
  std::size_t from = 0;
  for (; from + 1 < words.size() && words[from] == "--session"; from += 2) call.session = words[from + 1];

  const std::string all =
      fmt::format("{} ", fmt::join(words.begin() + static_cast<std::ptrdiff_t>(from), words.end(), " "));
  const auto command = std::ranges::find_if(
      commands(), [&](const Command& each) { return all.starts_with(std::string(each.name) + " "); });
  if (command == commands().end()) return finish({"unknown command: " + all + "\n", 2}, {});
  parse(call, words, from + text::words(command->name).size(), command->raw);

  const auto fault = call.folder.fault(command->name, call.session);
  if (fault && (fault->exit || fault->answer || fault->silence)) {  // refused: nothing is done
    const int status = finish({}, fault);
    if (fault->silence) hang();
    return status;
  }
  try {
    return finish(command->run(call), fault);
  } catch (const Failure& failure) {
    return finish(failed(failure.message()), fault);
  }
}

}  // namespace

int runCommandLine(const std::vector<std::string>& words) {
  try {
    return dispatch(words);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "herdr: %s\n", error.what());
    return 1;
  }
}

}  // namespace ostrel::standin
