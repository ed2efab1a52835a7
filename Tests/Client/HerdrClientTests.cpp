// The hub with a Herdr made up of prepared answers: managed server, integrations, restoring.
#include <mutex>

#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "Client/HerdrClient.h"
#include "Runtime/Failure.h"
#include "Support/MemoryPreferences.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::literals;

class NoExits final : public ProcessExits {
  Registration watch(std::int32_t, std::move_only_function<void()>) override { return {}; }
};
class NoFiles final : public FileWatcher {
  Registration watchFolder(const std::filesystem::path&, Changed) override { return {}; }
};

class FakeServers final : public ServerLauncher {
 public:
  class Server final : public LaunchedServer {
   public:
    explicit Server(const bool& running) : running_(running) {}
    bool running() override { return running_; }

   private:
    const bool& running_;
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
  // What a command prints; "!" and words make it fail with them. Commands that are not here list no sessions.
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
    return text;
  }
  std::size_t commands(std::string_view command) {
    const std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(std::ranges::count(commands_, command));
  }
  static std::string sessions(std::initializer_list<const char*> names) {
    Json list = Json::array();
    for (const char* name : names) list.push_back({{"name", name}, {"running", true}});
    return Json{{"sessions", list}}.dump();
  }
  // Connects through the managed server until it has said something.
  std::string connectManaged() {
    client_->link().error().set(std::nullopt);
    client_->connectManaged();
    for (int i = 0; i < 50; ++i) {
      loop_.waitUntil([&] { return *client_->link().active() || *client_->link().error(); }, 20ms);
      if (*client_->link().active()) return "connected";
      if (*client_->link().error()) return **client_->link().error();
      loop_.runFor(250ms);
    }
    return "nothing";
  }
  void make(bool fixture = false) {
    client_.reset();
    client_.emplace(
        HerdrClient::Ports{loop_, pool_, exits_, files_, preferences_, servers_},
        HerdrClient::Sources{.scanExternal = [](std::stop_token) { return std::vector<HerdrAgent>{}; },
                             .claudeSessions = "/sessions",
                             .herdr = {.run = [this](const auto&, const auto& arguments, Duration,
                                                     std::stop_token) { return run(arguments); },
                                       .events = [](const auto&...) {},
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
  EXPECT_EQ(connectManaged(), "Choose a Herdr session in Advanced before continuing.");
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

TEST_F(HerdrClientTest, StartsAServerOnceAndWaitsForIt) {
  preferences_.set("herdrManagedServer", true);
  servers_.refuses = true;
  const std::string dead =
      "Herdr could not start its background session. Check the installed Herdr version and its server log.";
  EXPECT_EQ(connectManaged(), dead);
  servers_.refuses = false;
  servers_.running = false;
  EXPECT_EQ(connectManaged(), dead);
  servers_.running = true;
  servers_.launched.clear();
  EXPECT_EQ(connectManaged(),
            "Herdr is still starting. Connect again to check it; the server will not be launched twice.");
  preferences_.remove("herdrManagedServer");
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
  const auto settled = [&] { return loop_.waitUntil([&] { return !*setup.busy(); }); };
  setup.install({});
  EXPECT_FALSE(*setup.busy());
  answer("integration status", "Installed:\nclaude: outdated (1.0)\ncodex: not installed\n");
  setup.check();
  setup.install({"codex"});  // one operation at a time
  ASSERT_TRUE(settled());
  EXPECT_EQ(commands("integration install codex"), 0U);
  EXPECT_EQ(setup.recommended({}), std::vector{"claude"s});

  answer("integration install pi", "!no");
  answer("integration status", "claude: current (1.1)\ncodex: needs repair (x)\npi: current (1)\n");
  setup.install({"pi", "claude", "codex"});
  ASSERT_TRUE(settled());
  EXPECT_EQ(*setup.message(),
            "Setup needs attention: pi, codex. Check provider installation and configuration, then retry.");
  setup.install({"claude"});
  ASSERT_TRUE(settled());
  EXPECT_EQ(
      *setup.message(),
      "Integrations installed. Existing agents may need to be resumed or restarted in Herdr to load their "
      "hooks. Live links appear after they report their session.");
  answer("integration status", "!gone");
  setup.install({"claude"});
  ASSERT_TRUE(settled());
  EXPECT_EQ(*setup.message(), "Setup ran, but verification failed: gone");
  EXPECT_EQ(setup.integrations()->size(), 3U);
  setup.check();
  ASSERT_TRUE(settled());
  EXPECT_EQ(*setup.message(), "gone");
  EXPECT_TRUE(setup.integrations()->empty());
}

}  // namespace
}  // namespace ostrel
