#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Client/CodexDiscovery.h"
#include "Codex/CodexLive.h"
#include "CodexStandIn.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::literals;
using CodexLocalServer::Connection;
using Peer = CodexStandIn::Peer;

// Longer than any test waits, on any machine.
constexpr CodexLocalServer::Limits kPatient{.call = 1min, .silence = 1min};

std::string threadID(int number) { return fmt::format("0190c0de-0000-7000-8000-{:012}", number); }

// The words with which opening a connection or `use` fails against `script`.
std::string words(std::function<void(Peer&)> script, std::function<void(Connection&)> use,
                  CodexLocalServer::Limits limits = kPatient) {
  CodexStandIn server([script](Peer& peer, int) { script(peer); });
  try {
    Connection connection(server.socket(), {}, limits);
    use(connection);
    return "(none)";
  } catch (const Failure& problem) {
    return problem.message();
  }
}
// The same for a call, of which the script has the request.
std::string callFails(std::function<void(Peer&, const Json&)> script,
                      CodexLocalServer::Limits limits = kPatient) {
  return words(
      [script](Peer& peer) {
        peer.open();
        script(peer, peer.request());
        peer.frame();  // until the client has gone
      },
      [](Connection& connection) { connection.call("x", Json::object()); }, limits);
}

TEST(CodexConnection, CallsAndHandsOnWhatIsNotItsAnswer) {
  CodexStandIn server([](Peer& peer, int) {
    peer.open();
    const Json request = peer.request();
    EXPECT_EQ(request, (Json{{"id", 2}, {"method", "a/b"}, {"params", {{"k", "é"}}}}));
    peer.raw(CodexStandIn::bytes(0x89, "ping"));
    EXPECT_EQ(peer.frame(), "ping");
    for (const char* const other : {R"({"method":"note"})", R"({"id":2,"method":"theirs"})",
                                    R"({"id":1,"result":{}})", R"({"id":"2","result":{}})", "[2]"})
      peer.raw(CodexStandIn::bytes(0x81, other));
    peer.respond(request, {{"answer", 42}});
    peer.refuse(peer.request(), "not today");
    std::string most = R"({"id":4,"result":{"text":")";
    most.resize(codex::kLargestMessage - 3, 'x');
    peer.request();
    peer.raw(CodexStandIn::bytes(0x81, most + R"("}})"));
  });
  Connection connection(server.socket(), {}, kPatient);
  std::string events;
  connection.onEvent = [&](const std::string& bytes) { events += bytes; };
  EXPECT_EQ(connection.callText("a/b", {{"k", "é"}}), R"({"answer":42})");
  EXPECT_EQ(events,
            R"({"method":"note"}{"id":2,"method":"theirs"}{"id":1,"result":{}}{"id":"2","result":{}}[2])");
  EXPECT_THROW(connection.call("c", Json::object()), CodexLocalServer::Refusal);
  EXPECT_EQ(connection.callText("d", Json::object()).size(), codex::kLargestMessage - 18);
}

TEST(CodexConnection, HostileServersEndInTheWrittenWords) {
  const auto nothing = [](Connection&) {};
  const auto replies = [](std::string_view reply, bool forEver) {
    return [=](Peer& peer) {
      peer.head();
      do peer.raw(reply);
      while (forEver);
      peer.head();
    };
  };
  EXPECT_EQ(words(replies("HTTP/1.1 101 \r\n", true), nothing), "Invalid Codex handshake.");
  EXPECT_EQ(words(replies("HTTP/1.1 101 \r\nX: AA\r\n\r\n", false), nothing),
            "Codex refused the local connection.");
  EXPECT_EQ(words(replies("HTTP/1.1 101 \r\nX", false), nothing, {.silence = 200ms}),
            "Codex connection closed or timed out.");
  const auto sends = [](const std::string& bytes) {
    return callFails([=](Peer& peer, const Json&) { peer.raw(bytes); });
  };
  EXPECT_EQ(sends("\x81\x85maskHello"), "Invalid masked Codex server frame.");
  EXPECT_EQ(sends("\x81\x7f\0\0\0\0\0\xf4\x24\x01"s), "Codex history response is too large.");
  EXPECT_EQ(sends("\x81\x01{"), "Codex sent a message that is not JSON.");
  EXPECT_EQ(sends(CodexStandIn::bytes(0x81, R"({"id":2,"error":5})")), "Invalid Codex response.");
  EXPECT_EQ(sends(CodexStandIn::bytes(0x81, R"({"id":2,"error":{}})")), "Codex history request failed.");
  // Endless fragments end at the limit; empty ones and a flood of pings at the deadline, which a slow machine
  // meets while opening already, in the same words.
  const auto timesOut = [](const std::string& end) {
    return end == "Codex history request exceeded its time or size limit." ||
           end == "Codex history request timed out.";
  };
  const auto floods = [](const std::string& bytes, bool reads, CodexLocalServer::Limits limits) {
    return callFails(
        [=](Peer& peer, const Json&) {
          for (;; reads ? peer.frame() : "") peer.raw(bytes);
        },
        limits);
  };
  EXPECT_EQ(floods(CodexStandIn::bytes(0, std::string(900'000, ' ')), false, kPatient),
            "Unsupported Codex frame.");
  EXPECT_TRUE(timesOut(floods({0, 0}, false, {.call = 300ms, .silence = 1min})));
  EXPECT_TRUE(timesOut(floods({'\x89', 0}, true, {.call = 300ms, .silence = 1min})));
  const auto refused = [](const std::string& path) {
    try {
      Connection connection(path);
    } catch (const Failure& problem) {
      return problem.message();
    }
    return std::string();
  };
  EXPECT_EQ(refused(std::string(104, 'p')), "Codex socket path is too long.");
  EXPECT_EQ(refused("/nonexistent/" + std::string(90, 'p')), "The local Codex server is unavailable.");
}

TEST(CodexConnection, StopsAtOnce) {
  std::stop_source stop;
  CodexStandIn server([&](Peer& peer, int) {
    peer.open();
    peer.request();
    stop.request_stop();
    peer.frame();
  });
  Connection connection(server.socket(), stop.get_token(), {.call = 1h, .silence = 1h});
  EXPECT_THROW(connection.call("x", Json::object()), Cancelled);
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
  const auto agent = CodexLive::agent(thread(1, {{"name", "  "}}));
  ASSERT_TRUE(agent);
  EXPECT_EQ(agent->title, "Codex · 0190c0de");
  EXPECT_TRUE(agent->isCodexLive() && agent->acceptsDirectInput);
  EXPECT_EQ(agent->transcriptReference, threadID(1));
  EXPECT_EQ(agent->context, "/w");
  EXPECT_EQ(CodexLive::agent(thread(1, {{"name", " A name "}, {"parentThreadId", nullptr}}))->title,
            "A name");
  const auto state = [](const char* type, const Json& flags = Json()) {
    const auto found = CodexLive::agent(thread(1, {{"status", {{"type", type}, {"activeFlags", flags}}}}));
    return found ? found->state : "(none)";
  };
  EXPECT_EQ(state("active"), "working");
  EXPECT_EQ(state("active", {"busy", "AWAITing"}), "blocked");
  EXPECT_EQ(state("active", {"waitingOnUserInput"}), "blocked");
  EXPECT_EQ(state("idle", {"waitingOnApproval"}), "idle");
  EXPECT_EQ(state("systemError"), "unknown");
  EXPECT_EQ(state("notLoaded"), "(none)");
  for (const Json& hidden : {Json{{"parentThreadId", "x"}}, Json{{"ephemeral", true}}, Json{{"cwd", 1}},
                             Json{{"id", "no-uuid"}}, Json{{"status", "idle"}}})
    EXPECT_FALSE(CodexLive::agent(thread(1, hidden))) << hidden;
}

TEST(CodexLive, PagesEndInTheWrittenWords) {
  // A page: how many ids, and the cursor behind them.
  const auto paging = [](const std::vector<std::pair<int, Json>>& pages) {
    return words(
        [&](Peer& peer) {
          peer.open();
          int next = 0;
          for (const auto& [ids, cursor] : pages) {
            Json page{{"data", Json::array()}, {"nextCursor", cursor}};
            for (int i = 0; i < ids; ++i) page["data"].push_back(threadID(next++));
            peer.serve("thread/loaded/list", page);
          }
          peer.frame();
        },
        [](Connection& connection) { EXPECT_EQ(CodexLive::loadedIDs(connection).size(), 1000u); });
  };
  EXPECT_EQ(paging({{600, "a"}, {400, nullptr}}), "(none)");
  EXPECT_EQ(paging({{600, "a"}, {401, 5}}), "Codex live-session list exceeded its limit.");
  EXPECT_EQ(paging({{600, "a"}, {600, "a"}}), "Codex repeated a session page.");
}

TEST(CodexLive, LeavesOutWhatGoesDuringThePassAndQueuesOnlyWhereAccepted) {
  CodexStandIn server([](Peer& peer, int) {
    peer.open();
    peer.serve("thread/loaded/list", {{"data", {threadID(3), threadID(2), threadID(1)}}});
    peer.serve("thread/read", {{"thread", thread(1)}});
    peer.refuse(peer.request(), "thread not found");
    const Json blocked{{"type", "active"}, {"activeFlags", {"waiting"}}};
    peer.serve("thread/read", {{"thread", thread(3, {{"status", blocked}})}});
  });
  TemporaryFolder folder;
  const auto said = folder.path() / "said";
  const auto tool =
      folder.write("codex", "#!/bin/sh\nprintf '%s|' \"$@\" > " + said.string() +
                                "\n[ \"$7\" = good ] || { echo 'Error: no such thread' >&2; exit 1; }\n");
  std::filesystem::permissions(tool, std::filesystem::perms::owner_all);
  bool installed = false;
  const CodexLive::Door door{
      server.socket(), [&] { return installed ? std::optional(tool) : std::nullopt; }, {}};
  const auto queued = [&](int id, const std::string& text) {
    try {
      CodexLive::queue(door, threadID(id), text);
      return std::string("queued");
    } catch (const Failure& problem) {
      return problem.message();
    }
  };
  const std::string refused = "This Codex session is no longer accepting input. Your draft is kept.";
  EXPECT_EQ(queued(3, "hi"), refused);
  EXPECT_EQ(queued(2, "hi"), refused);
  EXPECT_EQ(queued(1, "hi"), "The Codex CLI is required to queue messages.");
  installed = true;
  EXPECT_EQ(queued(1, " \n"), "A live conversation and message are required.");
  EXPECT_FALSE(std::filesystem::exists(said));
  EXPECT_EQ(queued(1, "bad"), "no such thread");
  EXPECT_EQ(queued(1, "good"), "queued");
  std::ifstream file(said);
  EXPECT_EQ(std::string(std::istreambuf_iterator(file), {}),
            "queue|--remote|unix://" + server.socket() + "|--thread|" + threadID(1) + "|--message|good|");
}

TEST(CodexDiscovery, PublishesEachPassAndEmptiesTheListWhenOneFails) {
  VirtualLoop loop;
  BackgroundPool pool;
  Published<std::vector<HerdrAgent>> agents;
  std::atomic<bool> fails = false;
  std::set<std::string> watched;
  const auto list = [&](std::stop_token) {
    if (fails) throw Failure("Codex closed the connection.");
    return std::vector{*CodexLive::agent(thread(1))};
  };
  CodexDiscovery discovery(loop, pool, list, agents, [&](const auto& threads) { watched = threads; });
  discovery.start();
  ASSERT_TRUE(loop.waitUntil([&] { return *discovery.passes() == 1; }));
  EXPECT_EQ(agents->size(), 1u);
  EXPECT_EQ(watched, std::set{threadID(1)});
  fails = true;
  loop.runFor(3s);
  ASSERT_TRUE(loop.waitUntil([&] { return *discovery.passes() == 2; }));
  EXPECT_TRUE(agents->empty() && watched.empty());
  EXPECT_EQ(*discovery.error(), "Codex live connection unavailable: Codex closed the connection.");
  fails = false;
  loop.runFor(3s);
  ASSERT_TRUE(loop.waitUntil([&] { return *discovery.passes() == 3; }));
  EXPECT_FALSE(agents->empty() || *discovery.error());
}

}  // namespace
}  // namespace ostrel
