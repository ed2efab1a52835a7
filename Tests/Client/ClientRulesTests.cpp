// Rules that hold between the client's parts, seen from outside: prompts and scans, links and threads.
#include <sys/socket.h>

#include <gtest/gtest.h>

#include "Claude/PermissionSocket.h"
#include "Client/ConversationLinks.h"
#include "Client/HerdrClient.h"
#include "Support/MemoryPreferences.h"
#include "Support/NoPorts.h"
#include "Support/TemporaryFolder.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

constexpr char kConversation[] = "0190c0de-0000-7000-8000-000000000001";

class ClientRulesTest : public testing::Test {
 protected:
  static HerdrAgent process(const char* provider) {
    HerdrAgent agent;
    agent.provider = provider;
    agent.session = "external";
    agent.paneID = "7:x";
    agent.state = AgentState::idle;
    agent.externalProcess.emplace().pid = 7;
    return agent;
  }
  // Starts with these processes and threads, once each source has told them.
  void start(HerdrAgent scanned, std::vector<HerdrAgent> threads = {}) {
    HerdrClient::Sources sources{
        .scanExternal = [scanned = std::move(scanned)](std::stop_token) { return std::vector{scanned}; },
        .claudeSessions = folder_.path(),
        .permissionSocket = socket_};
    if (!threads.empty()) {
      sources.followCodex = [threads = std::move(threads)](const CodexLive::Told& told,
                                                           std::stop_token stop) {
        told(threads);
        while (!stop.stop_requested()) std::this_thread::sleep_for(1ms);
        throw Cancelled();
      };
    }
    client_.emplace(HerdrClient::Ports{loop_, pool_, exits_, files_, preferences_, servers_, herdr_, pool_},
                    std::move(sources));
    client_->startDiscovery();
    ASSERT_TRUE(loop_.waitUntil([&] { return client_->report()->complete; }));
    loop_.runFor(100ms);
  }
  // One of Claude Code's hooks that asks in the conversation.
  UniqueFd ask() {
    UniqueFd hook(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = permissionSocket::address(socket_.c_str());
    EXPECT_EQ(::connect(hook.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const std::string line =
        Json{{"session_id", kConversation}, {"tool_name", "Bash"}, {"tool_input", Json::object()}}.dump() +
        "\n";
    ::send(hook.get(), line.data(), line.size(), MSG_NOSIGNAL);
    return hook;
  }
  std::size_t open() { return client_->requests().list().size(); }

  const TemporaryFolder folder_;
  const std::string socket_ = folder_.path() / "p.sock";
  VirtualLoop loop_;
  MemoryPreferences preferences_;
  NoExits exits_;
  NoFiles files_;
  NoServers servers_;
  NoHerdr herdr_;
  BackgroundPool pool_;
  std::optional<HerdrClient> client_;
};

TEST_F(ClientRulesTest, APromptEndsByWhatAScanSawAfterItCame) {
  HerdrAgent claude = process("claude");
  claude.transcriptReference = kConversation;
  claude.transcriptKind = "id";
  start(claude);
  const UniqueFd hook = ask();
  ASSERT_TRUE(loop_.waitUntil([&] { return open() == 1; }));
  loop_.runFor(3s);
  client_->actions().rename(claude.id(), "mine");  // news that bring no scan
  loop_.runFor(100ms);
  EXPECT_EQ(open(), 1u) << "that it rests was seen before it asked";
  const auto scanned = [&] {
    loop_.runFor(1s);  // a scan takes real time
    return open() == 0;
  };
  EXPECT_TRUE(loop_.waitUntil(scanned)) << "the terminal has answered";
}

TEST(ConversationLinks, ALinkIsOfTheTerminalForWhichItWasMade) {
  MemoryPreferences preferences;
  HerdrAgent pane;
  pane.session = "default";
  pane.paneID = "w1:p1";
  EXPECT_FALSE(manualLinkKey(pane)) << "it has not told its terminal";
  pane.terminalID = "term_1";
  preferences.set(*manualLinkKey(pane), "/h/a.jsonl");
  EXPECT_TRUE(linkedReference(pane, preferences));
  pane.terminalID = "term_2";
  EXPECT_FALSE(linkedReference(pane, preferences)) << "another terminal in the same pane";
}

TEST_F(ClientRulesTest, TheLinkOfATerminalIsTakenBackThroughTheThreadThatStandsForIt) {
  const HerdrAgent terminal = process("codex");
  HerdrAgent thread = terminal;
  thread.session = "codex-live";
  thread.externalProcess.reset();
  thread.paneID = kConversation;
  thread.transcriptReference = kConversation;
  thread.transcriptKind = "id";
  preferences_.set(*manualLinkKey(terminal), std::string("/h/rollout-x-") + kConversation + ".jsonl");
  start(terminal, {thread});
  ASSERT_EQ(client_->agents().list().agents.size(), 1u);
  const HerdrAgent row = client_->agents().list().agents[0].agent();
  ASSERT_TRUE(row.isCodexLive() && row.externalProcess);
  client_->actions().unlink(row.id());
  loop_.runFor(100ms);
  EXPECT_TRUE(preferences_.stored.empty());
  ASSERT_EQ(client_->agents().list().agents.size(), 1u);
  EXPECT_FALSE(client_->agents().list().agents[0].agent().isCodexLive())
      << "the terminal stands for itself again";
}

}  // namespace
}  // namespace ostrel
