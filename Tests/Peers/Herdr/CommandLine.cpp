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
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>

#include <fmt/format.h>

#include "Herdr/HerdrProtocol.h"
#include "Herdr/HerdrProviders.h"
#include "Herdr/HerdrSocket.h"
#include "Runtime/Failure.h"
#include "Runtime/Files.h"
#include "Runtime/Text.h"
#include "Server.h"
#include "StateFolder.h"
#include "TerminalRelay.h"

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
  HerdrSocket::Wire wire(call.folder.socket(call.session));
  wire.send("cli", method, params);
  const std::string line = wire.next({}, {});
  const auto reply = json::parse(line);
  return {line + "\n", reply && reply->contains("error") ? 1 : 0};
}

Answer paneAnswer(const Call& call, std::string_view method, Json params = Json::object()) {
  params["pane_id"] = call.word(0);
  return ask(call, method, params);
}

Answer sessionList(const Call& call) {
  Json rows = Json::array();
  for (const std::string& name : call.folder.sessions()) {
    const std::string socket = call.folder.socket(name);
    rows.push_back({{"name", name}, {"running", isRunning(socket)}, {"socket_path", socket}});
  }
  return document({{"result", {{"type", "session_list"}, {"sessions", rows}}}});
}

Answer serve(const Call& call) {
  Server(call.folder, call.session).run();
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
    HerdrSocket::Wire wire(folder.socket(name));
    wire.send("cli", "standin.stop", Json::object());
    wire.next({}, {});
  } catch (const Failure&) {  // not running, or disconnected: everything is gone
  }
}

void stopAll(const StateFolder& folder) {
  for (const std::string& name : folder.sessions()) stopSession(folder, name);
  std::error_code error;
  for (const auto& machine : std::filesystem::directory_iterator(folder.path() / "machines", error))
    stopAll(StateFolder(machine.path()));
}

Answer sessionStop(const Call& call) {
  if (call.options.contains("all")) {
    stopAll(call.folder);
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

Answer agentStart(const Call& call) {
  const auto quoted = [](const std::string& word) {
    std::string result = "'";
    for (const char c : word) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
  };
  const HerdrProvider* provider = HerdrProvider::find(call.option("kind"));
  if (!provider) return failed("Unknown kind of agent: " + call.option("kind"));
  std::string line(provider->executable);
  for (const std::string& word : call.rest) line += " " + quoted(word);
  return ask(call, "standin.start",
             {{"name", call.word(0)},
              {"kind", provider->id},
              {"pane_id", call.option("pane")},
              {"timeout", call.number("timeout", 30'000)},
              {"line", line}});
}

Answer integrationStatus(const Call& call) {
  const Json states = call.folder.read("integrations.json", Json::object());
  std::string text = "Integrations:\n";
  for (const HerdrProvider& provider : HerdrProvider::all()) {
    if (!provider.integration) continue;
    const std::string target(*provider.integration);
    text += fmt::format("{}: {} (/opt/{})\n", target, json::string(states, target).value_or("not installed"),
                        target);
  }
  return {text};
}

Answer integrationInstall(const Call& call) {
  Json states = call.folder.read("integrations.json", Json::object());
  const bool known = std::ranges::any_of(
      HerdrProvider::all(), [&](const HerdrProvider& each) { return each.integration == call.word(0); });
  if (!known) return {"unknown integration target: " + call.word(0) + "\n", 2};
  states[call.word(0)] = "current (1.0)";
  call.folder.write("integrations.json", states);
  return {"installed\n"};
}

Json machines(const Call& call) { return call.folder.read("machines.json", Json::array()); }

template <class Change>
Answer changeMachine(const Call& call, Change change) {
  Json rows = machines(call);
  const auto row =
      std::ranges::find_if(rows, [&](const Json& each) { return json::string(each, "id") == call.word(0); });
  if (row == rows.end()) return failed("No such machine.");
  change(rows, row);
  call.folder.write("machines.json", rows);
  return {};
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
      {"server", false, serve},
      {"session list", false, sessionList},
      {"session start", false, sessionStart},
      {"session stop", false, sessionStop},
      {"agent list", false, [](const Call& call) { return ask(call, "standin.agents", Json::object()); }},
      {"agent prompt", true,
       [](const Call& call) { return paneAnswer(call, "standin.prompt", {{"text", call.word(1)}}); }},
      {"agent send-keys", true,
       [](const Call& call) {
         return paneAnswer(call, "standin.keys",
                           {{"keys", std::vector(call.words.begin() + 1, call.words.end())}});
       }},
      {"agent start", false, agentStart},
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
      {"workspace create", false,
       [](const Call& call) {
         return ask(call, "standin.workspace",
                    {{"cwd", call.option("cwd", "/")}, {"label", call.option("label", "workspace")}});
       }},
      {"terminal session control", false,
       [](const Call& call) -> Answer {
         const Json attach{{"terminal_id", call.word(0)},
                           {"cols", call.number("cols", 100)},
                           {"rows", call.number("rows", 30)}};
         relayTerminal(call.folder.socket(call.session), attach);
         return {};
       }},
      {"integration status", false, integrationStatus},
      {"integration install", false, integrationInstall},
      {"machine list", false, [](const Call& call) -> Answer { return {json::dump(machines(call)) + "\n"}; }},
      {"machine enable", false,
       [](const Call& call) {
         return changeMachine(call, [](Json&, auto row) { (*row)["enabled"] = true; });
       }},
      {"machine disable", false,
       [](const Call& call) {
         return changeMachine(call, [](Json&, auto row) { (*row)["enabled"] = false; });
       }},
      {"machine remove", false,
       [](const Call& call) { return changeMachine(call, [](Json& rows, auto row) { rows.erase(row); }); }},
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
    } else if (word == "--json" || word == "--no-focus" || word == "--all" || i + 1 == words.size()) {
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

std::optional<std::string> ownSession() {
  const char* name = std::getenv("HERDR_SESSION");
  return name && *name != 0 ? std::optional<std::string>(name) : std::nullopt;
}

// The state folder and the session on a saved machine, in place of the local ones; false where it refuses.
bool enterMachine(Call& call, const std::string& id) {
  for (const Json& row : machines(call)) {
    if (json::string(row, "id") != id || !json::boolean(row, "enabled").value_or(false)) continue;
    call.session = json::string(row, "session").value_or("default");
    call.folder = call.folder.machine(id);
    return true;
  }
  return false;
}

int dispatch(const std::vector<std::string>& words) {
  Call call{.folder = StateFolder::fromEnvironment(), .session = ownSession().value_or("default")};
  call.folder.log(fmt::format("{}", fmt::join(words, " ")));
  std::size_t from = 0;
  for (; from + 1 < words.size() && words[from].starts_with("--"); from += 2) {
    if (words[from] == "--session") {
      call.session = words[from + 1];
    } else if (words[from] != "--machine" || !enterMachine(call, words[from + 1])) {
      return finish(failed("The machine is unknown or disabled."), {});
    }
  }

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
  } catch (const StreamFailure&) {
    throw;
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
