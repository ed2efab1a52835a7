#include "Client/ManagedServer.h"

#include <algorithm>
#include <utility>

#include "Herdr/HerdrProtocol.h"
#include "Platform/PreferenceKeys.h"
#include "Runtime/Failure.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

using namespace std::chrono_literals;

constexpr Duration kLook = 250ms;
constexpr int kLooks = 40;

constexpr auto kWanted = preferenceKeys::kHerdrManagedServer;

bool contains(const std::vector<std::string>& words, std::string_view word) {
  return std::ranges::find(words, word) != words.end();
}

// Tells that something is under way for as long as a task is in a block, however it leaves.
class WhileStarting {
 public:
  explicit WhileStarting(Published<bool>& flag) : flag_(flag) { flag_.set(true); }
  WhileStarting(const WhileStarting&) = delete;
  WhileStarting& operator=(const WhileStarting&) = delete;
  ~WhileStarting() { flag_.set(false); }

 private:
  Published<bool>& flag_;
};

}  // namespace

ManagedServer::ManagedServer(HerdrLink& link, Preferences& preferences, Launch launch)
    : link_(link), preferences_(preferences), launch_(std::move(launch)) {}

Task<std::string> ManagedServer::ensureSession(bool start) {
  if (*starting_ || *link_.connecting()) throw Failure("The background connection is still starting.");

  const WhileStarting now(starting_);
  const auto executable = co_await link_.executable();
  if (!executable) throw Failure("Choose the installed Herdr executable in Advanced.");
  std::vector<std::string> sessions = co_await running(*executable);
  const std::string chosen(text::trim(*link_.sessionName()));
  if (!chosen.empty()) {
    if (contains(sessions, chosen)) co_return chosen;
    throw Failure("The selected Herdr session is not running. Choose another session in Advanced.");
  }
  if (contains(sessions, session)) co_return session;
  if (sessions.size() == 1) co_return sessions.front();
  if (!start && !preferences_.get(kWanted) && !launch_.fixture)
    throw Failure("Choose a Herdr session in Advanced before continuing.");

  if (!server_ || !server_->running()) launch(*executable);
  for (int look = 0; look < kLooks; ++look) {
    co_await sleepFor(kLook);
    try {
      sessions = co_await running(*executable);
    } catch (const Failure&) {
      sessions.clear();  // a server that starts may not answer yet
    }
    if (contains(sessions, session)) {
      if (!launch_.fixture) preferences_.put(kWanted, true);
      co_return session;
    }
    if (!server_->running()) {
      server_.reset();
      throw Failure(
          "Herdr could not start its background session. Check the installed Herdr version and its server "
          "log.");
    }
  }
  throw Failure("Herdr is still starting. Connect again to check it; the server will not be launched twice.");
}

Task<std::vector<std::string>> ManagedServer::running(std::filesystem::path executable) {
  co_return HerdrProtocol::sessions(
      co_await link_.cli().run(std::move(executable), {"session", "list", "--json"}));
}

void ManagedServer::launch(const std::filesystem::path& executable) {
  auto environment = launch_.environment;
  environment["PATH"] = executable.parent_path().string() + ":" + environment["PATH"];
  try {
    server_ = launch_.launcher.launch(executable.string(), {"--session", session, "server"}, environment);
  } catch (const Failure&) {
    throw Failure(
        "Herdr could not start its background session. Check the installed Herdr version and its server "
        "log.");
  }
}

}  // namespace ostrel
