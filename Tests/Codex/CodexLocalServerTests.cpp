#include <atomic>
#include <fstream>
#include <thread>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Client/CodexDiscovery.h"
#include "Codex/CodexLive.h"
#include "Codex/CodexThreads.h"
#include "CodexStandIn.h"
#include "Platform/Linux/InotifyWatcher.h"
#include "Runtime/Files.h"
#include "Support/Failures.h"
#include "Support/StrangersSocket.h"
#include "Support/TemporaryFolder.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::literals;
using CodexLocalServer::Connection;
using Peer = CodexStandIn::Peer;

// Longer than any test waits, on any machine.
constexpr CodexLocalServer::Limits kPatient{.call = 1min, .silence = 1min};

std::string threadID(int number) { return fmt::format("0190c0de-0000-7000-8000-{:012}", number); }

// The words with which a connection, or `use` of it, fails against `script`.
void callSomething(Connection& connection) { connection.call("x", Json::object()); }
std::string words(const std::function<void(Peer&)>& script, CodexLocalServer::Limits limits = kPatient,
                  const std::function<void(Connection&)>& use = callSomething) {
  CodexStandIn server([&](Peer& peer, int) { script(peer); });
  return failureOf([&] {
    Connection connection(server.socket, {}, limits);
    use(connection);
  });
}

TEST(CodexConnection, CallsAndHandsOnWhatIsNotItsAnswer) {
  const std::vector<std::string> others = {R"({"method":"note"})", R"({"id":2,"method":"theirs"})",
                                           R"({"id":1,"result":{}})", R"({"id":"2","result":{}})", "[2]"};
  CodexStandIn server([&](Peer& peer, int) {
    peer.open();
    const Json request = peer.request();
    EXPECT_EQ(request, (Json{{"id", 2}, {"method", "a/b"}, {"params", {{"k", "é"}}}}));
    peer.raw(CodexStandIn::bytes(0x89, "ping"));
    EXPECT_EQ(peer.frame(), "ping");
    for (const auto& other : others) peer.raw(CodexStandIn::bytes(0x81, other));
    peer.respond(request, {{"answer", 42}});
    peer.refuse(peer.request(), "not today");
    peer.respond(peer.request(), {{"text", std::string(codex::kLargestMessage - 29, 'x')}});
  });
  Connection connection(server.socket, {}, kPatient);
  std::vector<std::string> events;
  connection.onEvent = [&](std::string bytes) { events.push_back(std::move(bytes)); };
  EXPECT_EQ(connection.callText("a/b", {{"k", "é"}}), R"({"answer":42})");
  EXPECT_EQ(events, others);
  EXPECT_THROW(connection.call("c", Json::object()), CodexLocalServer::Refusal);
  EXPECT_EQ(connection.callText("d", Json::object()).size(), codex::kLargestMessage - 18);
}

TEST(CodexConnection, HostileServersEndInTheWrittenWords) {
  const auto replies = [](const std::string& reply, bool forEver) {
    return [=](Peer& peer) {
      peer.head();
      do peer.raw(reply);
      while (forEver);
      peer.head();
    };
  };
  EXPECT_EQ(words(replies("HTTP/1.1 101 \r\n", true)), "Invalid Codex handshake.");
  EXPECT_EQ(words(replies("HTTP/1.1 101 \r\nX: AA\r\n\r\n", false)), "Codex refused the local connection.");
  EXPECT_EQ(words(replies("HTTP/1.1 101 \r\nX", false), {.silence = 200ms}),
            "Codex connection closed or timed out.");
  // To a call. A flood waits for the answer to each frame where these are pings.
  const auto sends = [](const std::string& bytes, bool forEver = false, bool reads = false) {
    return [=](Peer& peer) {
      peer.open();
      peer.request();
      do {
        peer.raw(bytes);
        if (reads) peer.frame();
      } while (forEver);
      peer.frame();
    };
  };
  const auto& frame = CodexStandIn::bytes;
  EXPECT_EQ(words(sends("\x81\x85maskHello")), "Invalid masked Codex server frame.");
  EXPECT_EQ(words(sends("\x81\x7f\0\0\0\0\0\xf4\x24\x01"s)), "Codex history response is too large.");
  EXPECT_EQ(words(sends("\x81\x01{")), "Codex sent a message that is not JSON.");
  EXPECT_EQ(words(sends(frame(0x81, R"({"id":2,"error":5})"))), "Invalid Codex response.");
  EXPECT_EQ(words(sends(frame(0x81, R"({"id":2,"error":{}})"))), "Codex history request failed.");
  EXPECT_EQ(words(sends(frame(0, std::string(900'000, ' ')), true)), "Unsupported Codex frame.");
  // These end at the deadline, which a slow machine meets while opening already, in the same words.
  for (const auto& flood : {sends({0, 0}, true), sends({'\x89', 0}, true, true)}) {
    const std::string end = words(flood, {.call = 300ms, .silence = 1min});
    EXPECT_TRUE(end == "Codex history request exceeded its time or size limit." ||
                end == "Codex history request timed out.")
        << end;
  }
}

TEST(CodexConnection, StopsAtOnceAndTellsWhyItCanNotBe) {
  std::stop_source stop;
  CodexStandIn server([&](Peer& peer, int) {
    peer.open();
    stop.request_stop();
    peer.request();
    peer.frame();
  });
  Connection connection(server.socket, stop.get_token(), {.call = 1h, .silence = 1h});
  EXPECT_THROW(connection.call("x", Json::object()), Cancelled);
  EXPECT_EQ(failureOf([] { Connection(std::string(104, 'p')); }), "Codex socket path is too long.");
  EXPECT_EQ(failureOf([] { Connection(std::string(103, 'p')); }), "The local Codex server is unavailable.");
}

TEST(CodexConnection, AnotherUserIsToldNothing) {
  if (!StrangersSocket::possible()) GTEST_SKIP() << "only root can listen as somebody else";
  TemporaryFolder folder;
  const std::string socket = folder.path() / "s";
  StrangersSocket stranger(socket);
  EXPECT_EQ(failureOf([&] { Connection connection(socket); }), "The Codex socket belongs to another user.");
  EXPECT_EQ(stranger.heard(), "");
}

TEST(CodexHistory, TurnsBecomeMessagesOldestFirst) {
  std::string result = R"({"nextCursor":null,"data":[
    {"id":"t2","startedAt":1767323045,"completedAt":"soon","items":[
      {"id":"u1","type":"userMessage","content":[{"type":"text","text":"seen already"}]},
      {"id":"c1","type":"commandExecution","command":"ls","status":"inProgress","aggregatedOutput":"x"},
      {"id":"f1","type":"fileChange","status":"declined","durationMs":1949},
      {"id":"m1","type":"mcpToolCall","server":"kit","tool":"echo","status":"completed",
       "arguments":{"n":123456789012345678901234567890},"durationMs":50},
      {"id":"p","type":"plan","text":"not shown"}, {"id":7,"type":"plan"}, 5,
      {"id":"a2","type":"agentMessage","text":"no time"}]},
    {"items":[
      {"id":"u1","type":"userMessage","content":[{"type":"text","text":" one"},{"type":"image"},
                                                 {"type":"text","text":"two\n "}]},
      {"id":"e","type":"agentMessage","text":" \n"},
      {"id":"a1","type":"agentMessage","text":"é\u00e9"}],
     "startedAt":1767323045.9,"completedAt":4e12}]})";
  std::string rows;
  for (const auto& [id, role, text, timestamp] : CodexLocalServer::messages(result))
    rows += id + "|" + role + "|" + text + "|" + timestamp.value_or("-") + "\n";
  EXPECT_EQ(rows,
            "u1|user|one\n\ntwo|2026-01-02T03:04:05Z\na1|assistant|éé|-\nc1|tool-running|Running · ls|-\n"
            "f1|tool|Declined · File changes · 1.9s|-\nm1|tool|Ran · kit · echo · 0.1s|-\n"
            "a2|assistant|no time|-\n");
  for (std::string bad : {R"({})", R"({"data":{}})", R"({"data":[1]})", R"({"data":[{"items":[{"id":"}]}]})"})
    EXPECT_THROW(CodexLocalServer::messages(bad), Failure) << bad;
}

Json thread(int number, const Json& changes = Json::object()) {
  Json value{{"id", threadID(number)},
             {"status", {{"type", "idle"}}},
             {"cwd", "/w"},
             {"canAcceptDirectInput", true}};
  value.update(changes);
  return value;
}

TEST(CodexLive, ThreadsBecomeAgents) {
  const auto agent = CodexLive::agent(thread(1, {{"name", "  "}})).value();
  EXPECT_EQ(agent.title, "Codex · w");
  EXPECT_TRUE(agent.isCodexLive() && agent.acceptsDirectInput && agent.transcriptReference == threadID(1));
  EXPECT_EQ(CodexLive::agent(thread(1, {{"name", " A name "}, {"parentThreadId", nullptr}}))->title,
            "A name");
  const auto state = [](const char* type, const Json& flags = Json()) {
    return CodexLive::agent(thread(1, {{"status", {{"type", type}, {"activeFlags", flags}}}})).value().state;
  };
  EXPECT_EQ(state("active"), AgentState::working);
  EXPECT_EQ(state("active", {"busy", "AWAITing"}), AgentState::blocked);
  EXPECT_EQ(state("idle", {"waitingOnApproval"}), AgentState::idle);
  EXPECT_EQ(state("systemError"), AgentState::unknown);
  for (const Json& hidden : {Json{{"parentThreadId", "x"}}, Json{{"ephemeral", true}}, Json{{"cwd", 1}},
                             Json{{"id", "no-uuid"}}, Json{{"status", {{"type", "notLoaded"}}}}})
    EXPECT_FALSE(CodexLive::agent(thread(1, hidden))) << hidden;
}

TEST(CodexLive, PagesEndInTheWrittenWords) {
  // Two pages: how many ids, and the cursor behind them.
  const auto paging = [](int second, const Json& cursor) {
    const auto pages = [&](Peer& peer) {
      peer.open();
      for (const int count : {600, second}) {
        Json page{{"data", Json::array()}, {"nextCursor", count == 600 ? Json("a") : cursor}};
        for (int i = 0; i < count; ++i) page["data"].push_back(threadID(i));
        peer.respond(peer.request(), page);
      }
    };
    return words(pages, kPatient, [](Connection& c) { EXPECT_EQ(CodexLive::loadedIDs(c).size(), 1000u); });
  };
  EXPECT_EQ(paging(400, nullptr), "(no failure)");
  EXPECT_EQ(paging(401, 5), "Codex live-session list exceeded its limit.");
  EXPECT_EQ(paging(600, "a"), "Codex repeated a session page.");
}

TEST(CodexLive, LeavesOutWhatGoesDuringThePassAndQueuesOnlyWhereAccepted) {
  CodexStandIn server([](Peer& peer, int) {
    peer.open();
    peer.respond(peer.request(), {{"data", {threadID(3), threadID(2), threadID(1)}}});
    peer.respond(peer.request(), {{"thread", thread(1)}});
    peer.refuse(peer.request(), "thread not found");
    const Json blocked{{"type", "active"}, {"activeFlags", {"waiting"}}};
    peer.respond(peer.request(), {{"thread", thread(3, {{"status", blocked}})}});
  });
  TemporaryFolder folder;
  const auto said = folder.path() / "said";
  const auto tool = folder.write("codex",
                                 "#!/bin/sh\n[ \"$7\" = good ] || { echo 'Error: no such thread'; exit 1; }\n"
                                 "printf '%s|' \"$@\" > " +
                                     said.string());
  std::filesystem::permissions(tool, std::filesystem::perms::owner_all);
  std::optional<std::filesystem::path> installed;
  const auto queued = [&](int id, const char* text) {
    return failureOf(
        [&] { CodexLive::queue({server.socket, [&] { return installed; }, {}}, threadID(id), text); });
  };
  const std::string refused = "This Codex session is no longer accepting input. Your draft is kept.";
  EXPECT_EQ(queued(3, "good"), refused);
  EXPECT_EQ(queued(2, "good"), refused);
  EXPECT_EQ(queued(1, "good"), "The Codex CLI is required to queue messages.");
  installed = tool;
  EXPECT_EQ(queued(1, " \n"), "A live conversation and message are required.");
  EXPECT_EQ(queued(1, "bad"), "no such thread");
  EXPECT_FALSE(std::filesystem::exists(said));
  EXPECT_EQ(queued(1, "good"), "(no failure)");
  EXPECT_EQ(files::read(said).value(),
            "queue|--remote|unix://" + server.socket + "|--thread|" + threadID(1) + "|--message|good|");
}

Json statusOf(int number, const char* type, const Json& flags = Json::array()) {
  return {{"method", "thread/status/changed"},
          {"params", {{"threadId", threadID(number)}, {"status", {{"type", type}, {"activeFlags", flags}}}}}};
}

std::string shown(const std::vector<HerdrAgent>& agents) {
  std::string all;
  for (const HerdrAgent& agent : agents)
    all += agent.paneID.back() + (" " + std::string(stateName(agent.state))) + " " + agent.title +
           (agent.since ? " changed; " : "; ");
  return all;
}

// What the server tells of its own accord, in any order, gives the list that a look at everything gives.
TEST(CodexThreads, NotificationsKeepTheListRight) {
  CodexThreads threads;
  const WallTime now{1h};
  const auto tell = [&](const Json& message) { threads.event(message.dump(), now); };
  const auto note = [](const char* method, int number, Json params = Json::object()) {
    params["threadId"] = threadID(number);
    return Json{{"method", method}, {"params", params}};
  };
  tell({{"method", "thread/started"}, {"params", {{"thread", thread(1)}}}});
  tell({{"method", "thread/started"}, {"params", {{"thread", thread(2)}}}});
  tell({{"method", "thread/started"}, {"params", {{"thread", thread(3, {{"ephemeral", true}})}}}});
  EXPECT_EQ(shown(threads.agents()), "1 idle Codex · w · 0001; 2 idle Codex · w · 0002; ");
  EXPECT_TRUE(threads.takeChanged());
  tell(statusOf(1, "active"));
  tell(statusOf(1, "active", {"waitingOnApproval"}));
  tell(statusOf(3, "active"));
  tell(note("thread/name/updated", 2, {{"threadName", " A name "}}));
  EXPECT_EQ(shown(threads.agents()), "1 blocked Codex · w changed; 2 idle A name; ");
  EXPECT_TRUE(threads.takeUnread().empty()) << "a helper is not asked for again";
  tell(statusOf(1, "idle"));
  tell(note("thread/name/updated", 2, {{"threadName", std::string(100'000, 'x')}}));
  EXPECT_EQ(threads.agents()[1].title.size(), 300u);
  EXPECT_TRUE(threads.takeChanged());
  tell(statusOf(1, "idle"));
  EXPECT_FALSE(threads.takeChanged());
  tell(statusOf(4, "active"));
  EXPECT_EQ(threads.takeUnread(), std::set{threadID(4)});
  threads.read(threadID(4), thread(4, {{"status", {{"type", "active"}}}}), now);
  tell(statusOf(2, "notLoaded"));
  tell(note("thread/closed", 2));
  EXPECT_EQ(shown(threads.agents()), "1 idle Codex · w · 0001 changed; 4 working Codex · w · 0004; ");
  for (const char* const broken : {"", "[]", R"({"method":"thread/started","params":{"thread":5}})",
                                   R"({"method":"thread/started","params":[]})",
                                   R"({"method":"thread/status/changed","params":{"threadId":"x"}})"})
    threads.event(broken, now);
  EXPECT_EQ(threads.agents().size(), 2u);
}

// The real loop over a real socket: silence costs no question, and a change is told when it comes.
TEST(CodexLive, FollowsOneConnectionUntilItEnds) {
  std::atomic<int> questions = 0;
  std::atomic<bool> goOn = false;
  CodexStandIn server([&](Peer& peer, int) {
    peer.open();
    const auto reply = [&](const Json& result) { peer.respond(peer.request(), result), ++questions; };
    reply({{"data", {threadID(1)}}});
    const Json asked = peer.request();
    // While it is read, another one starts.
    peer.raw(CodexStandIn::bytes(
        0x81, Json{{"method", "thread/started"}, {"params", {{"thread", thread(2)}}}}.dump()));
    peer.respond(asked, {{"thread", thread(1)}});
    peer.raw(CodexStandIn::bytes(0x89, "ping"));
    EXPECT_EQ(peer.frame(), "ping");
    while (!goOn) std::this_thread::sleep_for(1ms);
    peer.raw(CodexStandIn::bytes(0x81, statusOf(1, "active", {"waitingOnUserInput"}).dump()));
    while (goOn) std::this_thread::sleep_for(1ms);
  });
  std::vector<std::string> told;
  const std::string end = failureOf([&] {
    CodexLive::follow(server.socket,
                      [&](const std::vector<HerdrAgent>& agents) {
                        told.push_back(shown(agents));
                        goOn = told.size() == 1;
                      },
                      {}, {.limits = {.call = 1min, .silence = 50ms}});
  });
  EXPECT_EQ(told,
            (std::vector<std::string>{"1 idle Codex · w · 0001; 2 idle Codex · w · 0002; ",
                                      "1 blocked Codex · w · 0001 changed; 2 idle Codex · w · 0002; "}));
  EXPECT_EQ(end, "Codex connection closed or timed out.");
  EXPECT_EQ(questions, 1);
  EXPECT_EQ(failureOf([] { CodexLive::follow("/nowhere/s", [](const auto&) { FAIL(); }, {}); }),
            "(no failure)");
}

// Without a socket nothing runs until one comes; a server that does not answer is asked less and less often.
TEST(CodexDiscovery, WaitsForTheSocketAndPublishesWhatIsTold) {
  VirtualLoop loop;
  InotifyWatcher files(loop);
  TemporaryFolder folder;
  Published<std::vector<HerdrAgent>> agents;
  const auto socket = folder.path() / "home/control/s";
  std::atomic<int> tries = 0;
  std::atomic<bool> refuses = false, gone = false;
  const auto follow = [&](const CodexLive::Told& told, std::stop_token stop) {
    ++tries;
    if (refuses) throw Failure("Codex refused the local connection.");
    if (!std::filesystem::exists(socket)) return;
    auto works = *CodexLive::agent(thread(2));
    works.state = AgentState::working;
    told({});
    told({*CodexLive::agent(thread(1)), works});
    while (!gone) {
      if (stop.stop_requested()) throw Cancelled();
      std::this_thread::sleep_for(1ms);
    }
    throw Failure("Codex closed the connection.");
  };
  BackgroundPool pool;  // ends before what its work looks at
  std::set<std::string> watched;
  CodexDiscovery discovery(loop, pool, {files, socket, follow}, agents,
                           [&](const auto& threads) { watched = threads; });
  const auto quiet = [&] { return loop.waitUntil([&] { return *discovery.passes() > 0; }); };
  discovery.start();
  ASSERT_TRUE(quiet());
  loop.runFor(50min);
  EXPECT_EQ(tries, 1) << "asked though there is no socket";
  EXPECT_FALSE(discovery.error()->has_value()) << "nothing is wrong where no Codex runs";

  std::filesystem::create_directories(socket.parent_path());
  std::ofstream(socket) << "x";
  const auto listed = [&] {
    loop.runFor(25ms);
    return agents->size() == 2;
  };
  ASSERT_TRUE(loop.waitUntil(listed));
  EXPECT_EQ(watched, std::set{threadID(2)}) << "an idle thread that is joined stays loaded for ever";
  refuses = gone = true;
  ASSERT_TRUE(loop.waitUntil([&] { return discovery.error()->has_value(); }));
  EXPECT_TRUE(agents->empty() && watched.empty());
  const int before = tries;
  for (int i = 0; i < 10; ++i) {
    loop.runFor(6s);
    loop.waitUntil([&] { return false; }, 20ms);
  }
  EXPECT_LT(tries - before, 10);
  EXPECT_EQ(*discovery.error(), "Codex live connection unavailable: Codex refused the local connection.");
  gone = refuses = false;
  std::ofstream(socket) << "again";
  EXPECT_TRUE(loop.waitUntil(listed));
  EXPECT_FALSE(discovery.error()->has_value());
}

}  // namespace
}  // namespace ostrel
