// The hub with a Herdr made up of prepared answers: managed server, integrations, restoring.
#include <mutex>

#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "Client/HerdrClient.h"
#include "Herdr/HerdrProtocol.h"
#include "Runtime/Failure.h"
#include "Support/InlineBackground.h"
#include "Support/MemoryPreferences.h"
#include "Support/NoPorts.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::literals;

class FakeServers final : public ServerLauncher {
 public:
  struct Server final : LaunchedServer {
    explicit Server(const bool& is) : isRunning(is) {}
    bool running() override { return isRunning; }
    const bool& isRunning;
  };
  std::unique_ptr<LaunchedServer> launch(const std::string& executable,
                                         const std::vector<std::string>& arguments,
                                         const std::map<std::string, std::string>& environment) override {
    launched.push_back(
        fmt::format("{} {} PATH={}", executable, fmt::join(arguments, " "), environment.at("PATH")));
    if (refuses) throw Failure("no");
    return std::make_unique<Server>(running);
  }
  std::vector<std::string> launched;
  bool running = true;
  bool refuses = false;
};

class HerdrClientTest : public testing::Test, protected NoHerdr {
 protected:
  // What a command prints; "!" and words make it fail with them, "?" with them as Herdr's own. Commands that
  // are not here list no sessions.
  void answer(const std::string& command, std::string text) {
    const std::lock_guard lock(mutex_);
    answers_[command] = std::move(text);
  }
  std::string run(const std::filesystem::path&, const std::vector<std::string>& arguments, Duration,
                  std::stop_token) override {
    const std::lock_guard lock(mutex_);
    commands_.push_back(fmt::format("{}", fmt::join(arguments, " ")));
    const auto known = answers_.find(commands_.back());
    const std::string text = known == answers_.end() ? R"({"sessions":[],"agents":[]})" : known->second;
    if (text.starts_with("!")) throw Failure(text.substr(1));
    if (text.starts_with("?")) throw HerdrProtocol::Refusal(text.substr(1));
    return text;
  }
  std::optional<std::filesystem::path> find() override {
    const std::lock_guard lock(mutex_);
    return executable_;
  }
  bool isExecutable(const std::filesystem::path&) override { return true; }
  static std::string sessions(std::initializer_list<const char*> names) {
    Json list = Json::array();
    for (const char* name : names) list.push_back({{"name", name}, {"running", true}});
    return Json{{"sessions", list}}.dump();
  }
  static Task<void> ensured(ManagedServer& server, std::string& said) {
    try {
      said = co_await server.ensureSession(false);
    } catch (const Failure& failure) {
      said = failure.message();
    }
  }
  // Connects through the managed server until it has said something.
  std::string connectManaged() {
    HerdrConnection& herdr = client_->herdr();
    herdr.disconnect(false);  // forgets an earlier error
    herdr.connectManaged();
    loop_.waitUntil([&] {
      loop_.runFor(250ms);  // the commands take real time, the looks in between do not
      return herdr.facts().active || herdr.facts().error;
    });
    return herdr.facts().active ? "connected" : herdr.facts().error.value_or("nothing");
  }
  void make(bool fixture = false) {
    client_.reset();
    client_.emplace(
        HerdrClient::Ports{loop_, pool_, exits_, files_, preferences_, servers_, *this, pool_},
        HerdrClient::Sources{.scanExternal = [](std::stop_token) { return std::vector<HerdrAgent>{}; },
                             .claudeSessions = "/sessions",
                             .toolEnvironment = {{"PATH", "/usr/bin"}},
                             .fixture = fixture});
  }
  HerdrClientTest() {
    answer("api schema --json", R"({"schemas":{},"protocol":1})");
    make();
  }

  std::mutex mutex_;
  std::map<std::string, std::string> answers_;
  std::vector<std::string> commands_;
  std::optional<std::filesystem::path> executable_ = "/opt/herdr/herdr";
  VirtualLoop loop_;
  InlineBackground pool_;
  MemoryPreferences preferences_;
  NoExits exits_;
  NoFiles files_;
  FakeServers servers_;
  std::optional<HerdrClient> client_;
};

TEST_F(HerdrClientTest, UsesARunningSessionWhereItIsClearWhich) {
  answer("session list --json", sessions({"one", "two"}));
  client_->herdr().setSession("three");
  EXPECT_EQ(connectManaged(),
            "The selected Herdr session is not running. Choose another session in Advanced.");
  client_->herdr().setSession(" two\n");
  EXPECT_EQ(connectManaged(), "connected");
  EXPECT_TRUE(servers_.launched.empty());
  client_->herdr().disconnect(true);
  client_->herdr().setExecutable("");
  {
    const std::lock_guard lock(mutex_);
    executable_.reset();
  }
  EXPECT_EQ(connectManaged(), "Choose the installed Herdr executable in Advanced.");
}

// Whoever only needs a session starts none that nobody asked for.
TEST_F(HerdrClientTest, StartsNoServerUnasked) {
  answer("session list --json", sessions({"one", "two"}));
  std::string said;
  TaskScope tasks(loop_);
  HerdrLink link(loop_, preferences_, *this, pool_);
  ManagedServer server(link, preferences_, {servers_, {}});
  tasks.start(ensured(server, said));
  ASSERT_TRUE(loop_.waitUntil([&] { return !said.empty(); }));
  EXPECT_EQ(said, "Choose a Herdr session in Advanced before continuing.");
  EXPECT_TRUE(servers_.launched.empty());
}

TEST_F(HerdrClientTest, StartsAServerOnceAndWaitsForIt) {
  for (const bool refuses : {true, false}) {
    servers_.refuses = refuses;
    servers_.running = false;
    EXPECT_EQ(
        connectManaged(),
        "Herdr could not start its background session. Check the installed Herdr version and its server "
        "log.");
  }
  servers_.running = true;
  for (const std::size_t launched : {3u, 3u}) {
    EXPECT_EQ(connectManaged(),
              "Herdr is still starting. Connect again to check it; the server will not be launched twice.");
    EXPECT_EQ(servers_.launched.size(), launched);
  }
  EXPECT_FALSE(preferences_.boolean("herdrManagedServer"));
  make(true);  // a fixture run
  servers_.launched.clear();
  client_->herdr().connectManaged();
  ASSERT_TRUE(loop_.waitUntil([&] { return servers_.launched.size() == 1; }));
  client_->herdr().connectManaged();  // one is on its way
  EXPECT_TRUE(client_->herdr().facts().starting);
  answer("session list --json", sessions({"ostrel"}));
  ASSERT_TRUE(loop_.waitUntil([&] {
    loop_.runFor(250ms);
    return client_->herdr().facts().active;
  }));
  EXPECT_EQ(servers_.launched,
            std::vector{"/opt/herdr/herdr --session ostrel server PATH=/opt/herdr:/usr/bin"s});
  EXPECT_FALSE(preferences_.boolean("herdrManagedServer")) << "a fixture run leaves no claim";
}

TEST_F(HerdrClientTest, RestoresWhatWasWantedLast) {
  client_->restoreConnection();
  EXPECT_FALSE(client_->herdr().facts().active);
  make(true);
  preferences_.set("herdrReconnect", true);
  client_->restoreConnection();
  EXPECT_FALSE(client_->herdr().facts().active) << "not in a fixture run";
  make();
  preferences_.set("herdrSessionOverride", "side");
  client_->restoreConnection();
  EXPECT_TRUE(client_->herdr().facts().active);
  EXPECT_EQ(client_->herdr().session(), "side");
}

TEST_F(HerdrClientTest, InstallsIntegrationsAndSaysWhatCame) {
  HerdrLink link(loop_, preferences_, *this, pool_);
  IntegrationSetup setup(loop_, link);
  const auto message = [&] {
    EXPECT_TRUE(loop_.waitUntil([&] { return !*setup.busy(); }));
    return setup.message()->value_or("nothing");
  };
  const auto installing = [&](std::vector<std::string> targets) {
    setup.install(std::move(targets));
    return message();
  };
  EXPECT_EQ(installing({}), "nothing");
  answer("integration status", "Installed:\nclaude: outdated (1.0)\ncodex: not installed\n");
  setup.check();
  installing({"codex"});  // one operation at a time
  EXPECT_EQ(std::ranges::count(commands_, "integration install codex"), 0);
  EXPECT_EQ(setup.recommended({}), std::vector{"claude"s});

  answer("integration install pi", "!no");
  answer("integration install omp", "?omp config directory not found. install omp first.");
  answer("integration status", "claude: current (1.1)\ncodex: needs repair (x)\npi: current (1)\n");
  EXPECT_EQ(installing({"pi", "omp", "claude", "codex"}),
            "Setup needs attention: pi, omp (omp config directory not found. install omp first), codex. "
            "Check provider installation and configuration, then retry.");
  EXPECT_EQ(
      installing({"claude"}),
      "Integrations installed. Existing agents may need to be resumed or restarted in Herdr to load their "
      "hooks. Live links appear after they report their session.");
  answer("integration status", "!gone");
  EXPECT_EQ(installing({"claude"}), "Setup ran, but verification failed: gone");
  EXPECT_EQ(setup.integrations()->size(), 3U);
  setup.check();
  EXPECT_EQ(message(), "gone");
  EXPECT_TRUE(setup.integrations()->empty());
}

}  // namespace
}  // namespace ostrel
