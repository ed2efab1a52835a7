// The server over its real socket, with time standing still unless a test moves it.
#include <filesystem>
#include <list>
#include <set>
#include <sys/socket.h>
#include <sys/stat.h>

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

const std::string kBash =
    R"({"session_id":"s1","tool_name":"Bash","tool_input":{"command":"ls"},"permission_suggestions":)"
    R"([{"type":"setMode","mode":"acceptEdits"},{"type":"addRules","behavior":"allow","x":[1.50],)"
    R"("rules":[{"toolName":"Bash","ruleContent":"ls *"},{"toolName":"Read"}]}]})";
const std::string kQuestions =
    R"({"session_id":"s1","tool_name":"AskUserQuestion","tool_input":{"mode":7,"questions":[)"
    R"({"question":"Which?","header":"H","options":[{"label":"A","description":"d"},{"label":"B"}]},)"
    R"({"question":"Many?","multiSelect":true,"options":[{"label":"Red"},{"label":"Blue"}]},)"
    R"({"question":"Skipped?","options":[]}]}})";

class ClaudePermissionServerTest : public testing::Test {
 protected:
  // A hook as the server sees it.
  struct Client {
    explicit Client(const std::string& path) : fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
      const sockaddr_un address = permissionSocket::address(path.c_str());
      EXPECT_EQ(::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    // False when the server no longer takes it.
    bool send(std::string_view bytes) const {
      return ::send(fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
             static_cast<ssize_t>(bytes.size());
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

  Client connect(std::string_view bytes = "") {
    Client client(path);
    if (!bytes.empty()) EXPECT_TRUE(client.send(bytes));
    loop.runUntilIdle();
    return client;
  }
  const std::vector<ClaudePermissionRequest>& open() { return server.requests().get(); }
  // What a hook is told when its question is answered so.
  std::string replyTo(const std::string& line, const Answer& answer) {
    Client hook = connect(line + "\n");
    if (open().size() != 1) return "(no request)";
    server.answer(open().front(), answer);
    EXPECT_TRUE(hook.ended());
    EXPECT_TRUE(open().empty());
    return hook.reply;
  }

  const TemporaryFolder folder;
  const std::string path = (folder.path() / "p.sock").string();
  VirtualLoop loop;
  std::vector<std::string> captured;
  ClaudePermissionServer server{loop, path, [this](std::string_view event, const Json& properties) {
                                  captured.push_back(std::string(event) + json::dump(properties));
                                }};
};

TEST_F(ClaudePermissionServerTest, AnswersGoOutAsClaudeCodeReadsThem) {
  server.start();
  const auto wrapped = [](const std::string& decision) {
    return R"({"hookSpecificOutput":{"decision":)" + decision + R"(,"hookEventName":"PermissionRequest"}})" +
           "\n";
  };
  const std::string rules = R"([{"behavior":"allow","rules":[{"ruleContent":"ls *","toolName":"Bash"},)"
                            R"({"toolName":"Read"}],"type":"addRules","x":[1.5]}])";
  EXPECT_EQ(replyTo(kBash, {Answer::Allow{}}), wrapped(R"({"behavior":"allow"})"));
  EXPECT_EQ(replyTo(kBash, {Answer::AllowAlways{}}),
            wrapped(R"({"behavior":"allow","updatedPermissions":)" + rules + "}"));
  EXPECT_EQ(replyTo(R"({"session_id":"s1","tool_name":"Bash"})", {Answer::AllowAlways{}}),
            wrapped(R"({"behavior":"allow"})"));
  EXPECT_EQ(replyTo(kBash, {Answer::Deny{}}),
            wrapped(R"({"behavior":"deny","interrupt":true,"message":"The user declined this in Ostrel."})"));
  EXPECT_EQ(replyTo(kBash, {Answer::Deny{"no\n\"tabs\""}}),
            wrapped(R"({"behavior":"deny","interrupt":false,"message":"no\n\"tabs\""})"));

  const std::string answered = replyTo(
      kQuestions,
      {Answer::Answers{{{"Which?", {"A", "B"}}, {"Many?", {"Red", "Blue", "own"}}, {"Skipped?", {}}}}});
  const auto decision = Json::parse(answered)["hookSpecificOutput"]["decision"];
  EXPECT_EQ(decision["behavior"], "allow");
  Json input = Json::parse(kQuestions)["tool_input"];
  input["answers"] = {{"Which?", "A"}, {"Many?", "Red, Blue, own"}};
  EXPECT_EQ(decision["updatedInput"], input);
  EXPECT_EQ(captured,
            (std::vector<std::string>{R"(prompt_answered{"agent":"claude","answer":"allow"})",
                                      R"(prompt_answered{"agent":"claude","answer":"allow_always"})",
                                      R"(prompt_answered{"agent":"claude","answer":"allow_always"})",
                                      R"(prompt_answered{"agent":"claude","answer":"deny"})",
                                      R"(prompt_answered{"agent":"claude","answer":"redirect"})",
                                      R"(prompt_answered{"agent":"claude","answer":"question"})"}));
}

TEST_F(ClaudePermissionServerTest, EachRequestEndsOnce) {
  server.start();
  Client answeredTwice = connect(kBash + "\n");
  const auto request = open().at(0);
  const Subscription again = server.requests().observe([&] { server.answer(request, {Answer::Deny{}}); });
  server.answer(request, {Answer::Allow{}});
  server.answer(request, {Answer::Deny{}});
  EXPECT_TRUE(answeredTwice.ended());
  EXPECT_EQ(std::ranges::count(answeredTwice.reply, '\n'), 1);
  EXPECT_TRUE(answeredTwice.reply.contains(R"("behavior":"allow")"));

  std::optional<Client> dies(connect(kBash + "\n"));
  const auto dead = open().at(0);
  dies.reset();
  server.answer(dead, {Answer::Allow{}});  // before the server hears of it: no signal, no error
  EXPECT_TRUE(open().empty());
  dies.emplace(connect(kBash + "\nmore"));  // bytes behind the line are no JSON
  EXPECT_TRUE(open().empty() && dies->ended());

  Client stays = connect(kBash + "\n");
  dies.emplace(connect(kQuestions + "\n"));
  EXPECT_TRUE(dies->send("x"));  // unread bytes don't hide the end, and keep nobody busy
  loop.runUntilIdle();
  EXPECT_EQ(server.permissionRequests("s1").size(), 2u);
  dies.reset();
  loop.runUntilIdle();
  ASSERT_EQ(open().size(), 1u);
  EXPECT_EQ(open()[0].tool, "Bash");
  EXPECT_TRUE(server.permissionRequests("S1").empty());

  server.stop();
  EXPECT_TRUE(stays.ended());
  EXPECT_EQ(stays.reply, "");
  EXPECT_TRUE(open().empty());
  EXPECT_FALSE(fs::exists(path));
  server.start();
  EXPECT_EQ(replyTo(kBash, {Answer::Allow{}}).back(), '\n');
}

TEST_F(ClaudePermissionServerTest, ReconcilingEndsWhatWasAnsweredElsewhere) {
  server.start();
  Client hook = connect(kBash + "\n");
  std::optional<std::string> state = "working";
  const auto reconcile = [&] {
    server.reconcilePermissions([&](std::string_view id) { return id == "s1" ? state : std::nullopt; });
    return open().size();
  };
  loop.advance(2s);
  EXPECT_EQ(reconcile(), 1u) << "the state may lag";
  loop.advance(1ns);
  state = "blocked";
  EXPECT_EQ(reconcile(), 1u);
  state.reset();
  EXPECT_EQ(reconcile(), 1u) << "an unknown agent";
  state = "idle";
  EXPECT_EQ(reconcile(), 0u);
  EXPECT_TRUE(hook.ended());
  EXPECT_EQ(hook.reply, "");
}

TEST_F(ClaudePermissionServerTest, SlowAndHalfLinesHoldUpNobody) {
  server.start();
  Client slow = connect(kBash.substr(0, 10));
  Client silent = connect();
  EXPECT_NE(replyTo(kQuestions, {Answer::Allow{}}), "");
  for (std::size_t at = 10; at < 15; ++at) {
    loop.runFor(4s);
    EXPECT_TRUE(slow.send(kBash.substr(at, 1)));
    loop.runUntilIdle();
  }
  EXPECT_TRUE(silent.ended());
  EXPECT_TRUE(slow.send(kBash.substr(15) + "\r\n"));
  loop.runFor(1h);
  EXPECT_EQ(open().size(), 1u) << "a request has no time limit";
  Client half = connect(kBash);
  loop.runFor(4999ms);
  EXPECT_FALSE(half.ended());
  loop.runFor(1ms);
  EXPECT_TRUE(half.ended());
  Client gone = connect(kBash);
  ::shutdown(gone.fd.get(), SHUT_WR);
  loop.runUntilIdle();
  EXPECT_TRUE(gone.ended());
  for (const char* refused :
       {"\n", "[]\n", "{}\n", R"({"session_id":"s"})", R"({"session_id":1,"tool_name":"x"})",
        R"({"session_id":"s","tool_name":"AskUserQuestion","tool_input":{"questions":[{}]}})",
        "{\"session_id\":\"s\",\"tool_name\":\"\xff\"}"}) {
    Client client = connect(std::string(refused) + "\n");
    EXPECT_TRUE(client.ended()) << refused;
  }
  EXPECT_EQ(open().size(), 1u);
}

TEST_F(ClaudePermissionServerTest, LongLinesAndManyHooks) {
  server.start();
  // A question near the limit is understood, a longer one given up; the reply is as long, and read slowly.
  const std::string most(3'900'000, 'x');
  const auto feed = [&](Client& client, std::string_view bytes) {
    while (!bytes.empty() && !client.ended()) {
      const auto piece = bytes.substr(0, 32'768);
      if (client.send(piece)) bytes.remove_prefix(piece.size());
      loop.runUntilIdle();
    }
    return bytes.empty();
  };
  Client large(path);
  EXPECT_TRUE(feed(large, R"({"session_id":"s","tool_name":"Write","tool_input":{"c":")" + most + "\"}}\n"));
  ASSERT_EQ(open().size(), 1u);
  server.answer(open()[0], {Answer::Deny{most}});
  EXPECT_TRUE(loop.waitUntil([&] { return large.ended(); }));
  EXPECT_TRUE(large.reply.contains(most) && large.reply.ends_with("}}\n"));
  Client endless(path);
  EXPECT_FALSE(feed(endless, std::string(5'000'000, 'x')));

  std::list<Client> hooks;
  for (int i = 0; i < 200; ++i) hooks.push_back(connect(kBash + "\n"));
  ASSERT_EQ(open().size(), 200u);
  std::set<std::string> ids;
  for (const auto& request : open()) ids.insert(request.id);
  EXPECT_EQ(ids.size(), 200u);
  for (int i = 0; i < 60; ++i) hooks.push_back(connect());
  EXPECT_TRUE(hooks.back().ended()) << "more than anybody needs";
  loop.runFor(5s);
  EXPECT_FALSE(connect(kBash + "\n").ended()) << "the silent ones have made room";
  while (!open().empty()) server.answer(open().back(), {Answer::Allow{}});
  for (int i = 0; i < 200; ++i, hooks.pop_front())
    EXPECT_TRUE(hooks.front().ended() && !hooks.front().reply.empty());
}

TEST_F(ClaudePermissionServerTest, TakesItsPathFromNobodyAlive) {
  std::ofstream(path) << "a file of somebody's";
  server.start();
  EXPECT_FALSE(server.listening());
  EXPECT_TRUE(fs::is_regular_file(path));
  fs::remove(path);

  {
    const UniqueFd crashed(::socket(AF_UNIX, SOCK_STREAM, 0));
    const sockaddr_un address = permissionSocket::address(path.c_str());
    ASSERT_EQ(::bind(crashed.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  server.start();
  EXPECT_TRUE(server.listening());
  struct stat info;
  ASSERT_EQ(::stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);

  ClaudePermissionServer newer(loop, path);
  newer.start();
  EXPECT_FALSE(newer.listening());
  EXPECT_NE(replyTo(kBash, {Answer::Allow{}}), "");
  server.stop();
  loop.runFor(2s);
  EXPECT_TRUE(newer.listening()) << "the older copy has left";
  fs::remove(path);
  server.start();
  newer.stop();
  EXPECT_TRUE(fs::exists(path)) << "it is another's by now";

  ClaudePermissionServer tooLong(loop, std::string(104, 'x')), nowhere(loop, ""), noFolder(loop, path + "/x");
  for (auto* off : {&tooLong, &nowhere, &noFolder}) {
    off->start();
    EXPECT_FALSE(off->listening());
  }
}

TEST_F(ClaudePermissionServerTest, AnotherUserIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  server.start();
  fs::permissions(folder.path(), fs::perms::all);
  fs::permissions(path, fs::perms::all);
  ASSERT_EQ(::seteuid(65534), 0);
  Client stranger(path);
  ASSERT_EQ(::seteuid(0), 0);
  EXPECT_TRUE(stranger.send(kBash + "\n"));
  loop.runUntilIdle();
  EXPECT_TRUE(stranger.ended() && open().empty());
}

}  // namespace
}  // namespace ostrel
