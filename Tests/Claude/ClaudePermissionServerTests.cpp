// The server over its real socket, with time standing still unless a test moves it.
#include <list>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include "Claude/ClaudePermissionServer.h"
#include "Claude/PermissionSocket.h"
#include "Support/TemporaryFolder.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Answer = ClaudePermissionAnswer;

const std::string kBash = R"({"session_id":"s1","tool_name":"Bash","permission_suggestions":)"
                          R"([{"type":"setMode"},{"type":"addRules","behavior":"allow","x":[1.50]}]})"
                          "\n";
const std::string kQuestions =
    R"({"session_id":"s1","tool_name":"AskUserQuestion","tool_input":{"mode":7,"questions":)"
    R"([{"question":"One?"},{"question":"Many?","multiSelect":true},{"question":"Skipped?","options":[]}]}})"
    "\n";
const Answer kYes{Answer::Allow{}};

// A hook as the server sees it.
struct Client {
  explicit Client(const std::string& path) : fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_un address = permissionSocket::address(path.c_str());
    EXPECT_EQ(::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  // How much of it is taken.
  std::size_t send(std::string_view bytes) const {
    const ssize_t count = ::send(fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return static_cast<std::size_t>(std::max<ssize_t>(count, 0));
  }
  // Takes what has come; true at the end of the connection.
  bool ended() {
    char block[4096];
    ssize_t count;
    while ((count = ::recv(fd.get(), block, sizeof block, MSG_DONTWAIT)) > 0)
      reply.append(block, static_cast<std::size_t>(count));
    return count == 0 || errno == ECONNRESET;
  }
  UniqueFd fd;
  std::string reply;
};

struct ClaudePermissionServerTest : testing::Test {
  ClaudePermissionServerTest() { server.start(); }
  Client connect(std::string_view bytes) {
    Client client(path);
    client.send(bytes);
    loop.runUntilIdle();
    return client;
  }
  const std::vector<ClaudePermissionRequest>& open() { return *server.requests(); }
  // What a hook is told when its question is answered so.
  std::string reply(const std::string& line, const Answer& answer) {
    Client hook = connect(line);
    server.answer(open().at(0), answer);
    EXPECT_TRUE(hook.ended() && open().empty());
    return hook.reply;
  }

  const TemporaryFolder folder;
  const std::string path = folder.path() / "p.sock";
  VirtualLoop loop;
  ClaudePermissionServer server{loop, path};
};

TEST_F(ClaudePermissionServerTest, AnswersGoOutAsClaudeCodeReadsThem) {
  const auto line = [](const std::string& decision) {
    const std::string event = R"(},"hookEventName":"PermissionRequest"}})";
    return R"({"hookSpecificOutput":{"decision":{"behavior":)" + decision + event + "\n";
  };
  EXPECT_EQ(reply(kBash, {Answer::AllowAlways{}}),
            line(R"("allow","updatedPermissions":[{"behavior":"allow","type":"addRules","x":[1.5]}])"));
  EXPECT_EQ(reply(kQuestions, {Answer::AllowAlways{}}), line(R"("allow")"));
  EXPECT_EQ(reply(kBash, {Answer::Deny{}}),
            line(R"("deny","interrupt":true,"message":"The user declined this in Ostrel.")"));
  EXPECT_EQ(reply(kBash, {Answer::Deny{"no\n"}}), line(R"("deny","interrupt":false,"message":"no\n")"));
  Json input = Json::parse(kQuestions)["tool_input"];
  input["answers"] = {{"One?", "A"}, {"Many?", "Red, Blue"}};
  EXPECT_EQ(reply(kQuestions,
                  {Answer::Answers{{{"One?", {"A", "B"}}, {"Many?", {"Red", "Blue"}}, {"Skipped?", {}}}}}),
            line(R"("allow","updatedInput":)" + input.dump()));
}

TEST_F(ClaudePermissionServerTest, EachRequestEndsOnce) {
  Client twice = connect(kBash);
  const auto request = open().at(0);
  const Subscription again = server.requests().observe([&] { server.answer(request, {Answer::Deny{}}); });
  server.answer(request, kYes);
  server.answer(request, {Answer::Deny{}});
  EXPECT_TRUE(twice.ended() && twice.reply.contains("allow") && !twice.reply.contains("deny"));

  std::optional<Client> dies(connect(kBash));
  dies.reset();
  server.answer(open().at(0), kYes);  // before the server hears of it: no signal, no error
  dies.emplace(connect(kQuestions));
  dies->send("x");  // unread bytes don't hide the end, and keep nobody busy
  Client stays = connect(kBash);
  EXPECT_EQ(open().size(), 2u);
  dies.reset();
  loop.runUntilIdle();
  EXPECT_EQ(open().size(), 1u);

  using Seen = ClaudePermissionServer::SeenState;
  const auto ends = [&](std::optional<AgentState> state, std::optional<TimePoint> at = {}) {
    server.reconcilePermissions([&](std::string_view id) -> std::optional<Seen> {
      if (id != "s1") return Seen{AgentState::idle, loop.now()};
      return state ? std::optional(Seen{*state, at.value_or(loop.now())}) : std::nullopt;
    });
    return stays.ended();
  };
  const TimePoint before = loop.now() - 1ns;
  loop.advance(2s);
  EXPECT_FALSE(ends(AgentState::idle)) << "the state may lag";
  loop.advance(1ns);
  EXPECT_FALSE(ends(AgentState::blocked) || ends(std::nullopt));
  EXPECT_FALSE(ends(AgentState::idle, before)) << "a scan that hung since before the request came";
  EXPECT_TRUE(ends(AgentState::working));
  Client last = connect(kBash);
  server.stop();
  EXPECT_TRUE(last.ended() && open().empty() && !fs::exists(path));
  EXPECT_EQ(stays.reply + last.reply, "");
}

// Claude Code tells of forms in its terminals, and waits for no answer to that.
TEST_F(ClaudePermissionServerTest, FormsAreOpenFromOneNoteToTheOther) {
  using Forms = std::set<std::string>;
  using Seen = ClaudePermissionServer::SeenState;
  const auto note = [&](const std::string& session, const std::string& type) {
    EXPECT_TRUE(connect(R"({"session_id":")" + session + R"(","hook_event_name":"Notification",)" +
                        R"("message":"m","notification_type":")" + type + "\"}\n")
                    .ended());
    return *server.forms();
  };
  EXPECT_EQ(note("A-1", "elicitation_dialog"), Forms({"a-1"}));
  EXPECT_EQ(note("b", "elicitation_url_dialog"), Forms({"a-1", "b"}));
  EXPECT_EQ(note("b", "idle_prompt"), Forms({"a-1", "b"}));
  EXPECT_EQ(note("b", "elicitation_response"), Forms({"a-1"}));
  EXPECT_EQ(note(std::string(300, 'x'), "elicitation_dialog"), Forms({"a-1"}));
  EXPECT_TRUE(open().empty());

  std::optional<Seen> seen;
  const auto left = [&] {
    server.reconcilePermissions([&](std::string_view) { return seen; });
    return server.forms()->size();
  };
  const TimePoint before = loop.now();
  loop.runFor(29s);
  EXPECT_EQ(left(), 1u);
  for (const AgentState state : {AgentState::working, AgentState::blocked}) {
    seen = Seen{state, loop.now()};
    EXPECT_EQ(left(), 1u) << stateName(state);
  }
  seen = Seen{AgentState::idle, before};
  EXPECT_EQ(left(), 1u) << "a scan from before the form";
  seen = Seen{AgentState::idle, loop.now()};
  EXPECT_EQ(left(), 0u) << "a turn that was broken off";
  note("gone", "elicitation_dialog");
  seen.reset();
  loop.runFor(31s);
  EXPECT_EQ(left(), 0u) << "its session has ended";
  note("c", "elicitation_dialog");
  server.stop();
  EXPECT_EQ(*server.forms(), Forms());
}

TEST_F(ClaudePermissionServerTest, SlowAndBrokenLinesHoldUpNobody) {
  Client slow = connect("{");
  Client silent = connect("");
  EXPECT_NE(reply(kQuestions, kYes), "") << "the others don't wait for them";
  for (std::size_t at = 1; at < 5; ++at) {
    loop.runFor(4s);
    slow.send(kBash.substr(at, 1));
    loop.runUntilIdle();
  }
  EXPECT_TRUE(silent.ended());
  slow.send(kBash.substr(5));
  loop.runFor(1h);
  EXPECT_EQ(open().size(), 1u) << "a request has no time limit";
  for (const std::string refused :
       {"[]\n", "{\"session_id\":1,\"tool_name\":\"x\"}\n", "{\"session_id\":\"s\"}\n",
        "{\"session_id\":\"s\",\"tool_name\":\"AskUserQuestion\",\"tool_input\":{\"questions\":[{}]}}\n"})
    EXPECT_TRUE(connect(refused).ended()) << refused;
  EXPECT_TRUE(connect(kBash + "more").ended());
}

TEST_F(ClaudePermissionServerTest, LongLinesAndManyHooks) {
  const auto feed = [&](Client& client, std::string_view bytes) {
    for (; !bytes.empty() && !client.ended(); loop.runUntilIdle()) bytes.remove_prefix(client.send(bytes));
    return bytes.empty();
  };
  const std::string most(3'900'000, 'x');
  Client large(path), endless(path);
  EXPECT_TRUE(feed(large, R"({"session_id":"s","tool_name":"Write","x":")" + most + "\"}\n"));
  server.answer(open().at(0), {Answer::Deny{most}});  // as long, and read slowly
  EXPECT_TRUE(loop.waitUntil([&] { return large.ended(); }));
  EXPECT_TRUE(large.reply.contains(most) && large.reply.ends_with("}}\n"));
  EXPECT_FALSE(feed(endless, std::string(5'000'000, 'x')));

  std::list<Client> hooks;
  for (int i = 0; i < 260; ++i) hooks.push_back(connect(i < 200 ? kBash : ""));
  EXPECT_TRUE(hooks.back().ended()) << "more than anybody needs";
  loop.runFor(5s);
  EXPECT_FALSE(connect(kBash).ended()) << "the silent ones have made room";
  while (!open().empty()) server.answer(open().back(), kYes);
  EXPECT_EQ(std::ranges::count_if(hooks, [](Client& hook) { return hook.ended() && !hook.reply.empty(); }),
            200);
}

TEST_F(ClaudePermissionServerTest, TakesItsPathFromNobodyAlive) {
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0600));
  ClaudePermissionServer newer(loop, path);
  newer.start();
  EXPECT_FALSE(newer.listening());
  EXPECT_NE(reply(kBash, kYes), "");
  server.stop();
  loop.runFor(2s);
  EXPECT_TRUE(newer.listening()) << "the older copy has left";
  fs::rename(path, path + "2");
  std::ofstream(path) << "a file of somebody's";
  server.start();
  EXPECT_TRUE(!server.listening() && fs::is_regular_file(path));
  newer.stop();
  EXPECT_TRUE(fs::exists(path)) << "it is another's by now";
  fs::rename(path + "2", path);  // as a crash leaves it
  server.start();
  EXPECT_TRUE(server.listening());

  if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  fs::permissions(folder.path(), fs::perms::all);
  fs::permissions(path, fs::perms::all);
  ASSERT_EQ(::seteuid(65534), 0);
  Client stranger(path);
  ASSERT_EQ(::seteuid(0), 0);
  stranger.send(kBash);
  loop.runUntilIdle();
  EXPECT_TRUE(stranger.ended() && open().empty());
}

}  // namespace
}  // namespace ostrel
