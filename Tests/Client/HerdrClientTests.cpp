// The hub with a Herdr made up of prepared answers: managed server, integrations, restoring.
#include <mutex>

#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "Client/HerdrClient.h"
#include "Herdr/HerdrProtocol.h"
#include "Runtime/Failure.h"
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

class HerdrClientTest : public testing::Test {
 protected:
  // What a command prints; "!" and words make it fail with them, "?" with them as Herdr's own. Commands that
  // are not here list no sessions.
  void answer(const std::string& command, std::string text) {
    const std::lock_guard lock(mutex_);
    answers_[command] = std::move(text);
  }
  std::string run(const std::vector<std::string>& arguments) {
    const std::lock_guard lock(mutex_);
    commands_.push_back(fmt::format("{}", fmt::join(arguments, " ")));
    const auto known = answers_.find(commands_.back());
    const std::string text = known == answers_.end() ? R"({"sessions":[],"agents":[]})" : known->second;
    if (text.starts_with("!")) throw Failure(text.substr(1));
    if (text.starts_with("?")) throw HerdrProtocol::Refusal(text.substr(1));
    return text;
  }
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
    client_->link().error().set(std::nullopt);
    client_->connectManaged();
    loop_.waitUntil([&] {
      loop_.runFor(250ms);  // the commands take real time, the looks in between do not
      return *client_->link().active() || *client_->link().error();
    });
    return *client_->link().active() ? "connected" : client_->link().error()->value_or("nothing");
  }
  void make(bool fixture = false) {
    client_.reset();
    client_.emplace(
        HerdrClient::Ports{loop_, pool_, exits_, files_, preferences_, servers_},
        HerdrClient::Sources{.scanExternal = [](std::stop_token) { return std::vector<HerdrAgent>{}; },
                             .claudeSessions = "/sessions",
                             .herdr = {.run = [this](const auto&, const auto& arguments, Duration,
                                                     std::stop_token) { return run(arguments); },
                                       .request = {},
                                       .events = {},
                                       .find = [this] { return executable_; },
                                       .isExecutable = [](const auto&) { return true; }},
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
  BackgroundPool pool_;
  MemoryPreferences preferences_;
  NoExits exits_;
  NoFiles files_;
  FakeServers servers_;
  std::optional<HerdrClient> client_;
};

TEST_F(HerdrClientTest, UsesARunningSessionWhereItIsClearWhich) {
  answer("session list --json", sessions({"one", "two"}));
  client_->link().sessionName().set("three");
  EXPECT_EQ(connectManaged(),
            "The selected Herdr session is not running. Choose another session in Advanced.");
  client_->link().sessionName().set(" two\n");
  EXPECT_EQ(connectManaged(), "connected");
  EXPECT_TRUE(servers_.launched.empty());
  client_->disconnect(true);
  client_->link().executablePath().set("");
  executable_.reset();
  EXPECT_EQ(connectManaged(), "Choose the installed Herdr executable in Advanced.");
}

// Whoever only needs a session starts none that nobody asked for.
TEST_F(HerdrClientTest, StartsNoServerUnasked) {
  answer("session list --json", sessions({"one", "two"}));
  std::string said;
  TaskScope tasks(loop_);
  tasks.start(ensured(client_->managedServer(), said));
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
  client_->connectManaged();
  ASSERT_TRUE(loop_.waitUntil([&] { return servers_.launched.size() == 1; }));
  client_->connectManaged();  // one is on its way
  EXPECT_TRUE(*client_->managedServer().starting());
  answer("session list --json", sessions({"ostrel"}));
  ASSERT_TRUE(loop_.waitUntil([&] {
    loop_.runFor(250ms);
    return *client_->link().active();
  }));
  EXPECT_EQ(servers_.launched,
            std::vector{"/opt/herdr/herdr --session ostrel server PATH=/opt/herdr:/usr/bin"s});
  EXPECT_FALSE(preferences_.boolean("herdrManagedServer")) << "a fixture run leaves no claim";
}

TEST_F(HerdrClientTest, RestoresWhatWasWantedLast) {
  client_->restoreConnection();
  EXPECT_FALSE(*client_->link().active());
  make(true);
  preferences_.set("herdrReconnect", true);
  client_->restoreConnection();
  EXPECT_FALSE(*client_->link().active()) << "not in a fixture run";
  make();
  preferences_.set("herdrSessionOverride", "side");
  client_->restoreConnection();
  EXPECT_TRUE(*client_->link().active());
  EXPECT_EQ(*client_->link().sessionName(), "side");
}

TEST_F(HerdrClientTest, InstallsIntegrationsAndSaysWhatCame) {
  IntegrationSetup& setup = client_->integrations();
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
