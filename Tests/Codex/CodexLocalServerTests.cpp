#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Client/CodexDiscovery.h"
#include "Codex/CodexLive.h"
#include "Codex/CodexLocalServer.h"
#include "CodexStandIn.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::literals;
using CodexLocalServer::Connection;
using CodexLocalServer::Limits;
using Peer = CodexStandIn::Peer;

// Longer than any test waits, on any machine.
const Limits kPatient{.call = 1min, .silence = 1min};
const std::string kThread = "0190c0de-0000-7000-8000-000000000001";

std::string threadID(int number) { return fmt::format("0190c0de-0000-7000-8000-{:012}", number); }

// The words with which `use` fails against a server that runs `script`.
template <class Use>
std::string failure(CodexStandIn::Script script, Use use, Limits limits = kPatient) {
  CodexStandIn server(std::move(script));
  try {
    Connection connection(server.socket(), {}, limits);
    use(connection);
    return "(none)";
  } catch (const Failure& problem) {
    return problem.message();
  }
}
std::string openingFails(std::function<void(Peer&)> script, Limits limits = kPatient) {
  return failure([script](Peer& peer, int) { script(peer); }, [](Connection&) {}, limits);
}
// The same for a call, of which the script has the request.
std::string callFails(std::function<void(Peer&, const Json&)> script, Limits limits = kPatient) {
  return failure(
      [script](Peer& peer, int) {
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
    peer.raw(Peer::bytes(0x89, "ping"));
    int opcode = 0;
    EXPECT_EQ(peer.frame(&opcode), "ping");
    EXPECT_EQ(opcode, 10);
    peer.send({{"method", "note"}});
    peer.send({{"id", 2}, {"method", "theirs"}});
    peer.send({{"id", 1}, {"result", Json::object()}});
    peer.send({{"id", "2"}, {"result", Json::object()}});
    peer.send(Json::array({2}));
    peer.respond(request, {{"answer", 42}});
    peer.send({{"id", peer.request()["id"]}, {"error", {{"message", "not today"}}}});
    peer.respond(peer.request(), Json::object());
    peer.frame();
  });
  Connection connection(server.socket(), {}, kPatient);
  std::vector<std::string> events;
  connection.onEvent = [&](std::string bytes) { events.push_back(std::move(bytes)); };
  EXPECT_EQ(connection.callText("a/b", {{"k", "é"}}), R"({"answer":42})");
  EXPECT_EQ(events,
            (std::vector<std::string>{R"({"method":"note"})", R"({"id":2,"method":"theirs"})",
                                      R"({"id":1,"result":{}})", R"({"id":"2","result":{}})", "[2]"}));
  try {
    connection.call("c", Json::object());
    ADD_FAILURE();
  } catch (const CodexLocalServer::Refusal& refusal) {
    EXPECT_EQ(refusal.message(), "not today");
  }
  EXPECT_EQ(connection.call("d", Json::object()), Json::object());  // a refusal leaves it usable
}

TEST(CodexConnection, HostileServersEndInTheWrittenWords) {
  EXPECT_EQ(openingFails([](Peer& peer) {
              peer.head();
              for (;;) peer.raw("HTTP/1.1 101 \r\n");
            }),
            "Invalid Codex handshake.");
  EXPECT_EQ(openingFails([](Peer& peer) {
              peer.head();
              peer.raw("HTTP/1.1 101 X\r\nSec-WebSocket-Accept: AAAA\r\n\r\n");
              peer.head();
            }),
            "Codex refused the local connection.");
  const auto half = [](Peer& peer) {
    peer.head();
    peer.raw("HTTP/1.1 101 X\r\nSec-");
    peer.head();
  };
  EXPECT_EQ(openingFails(half, {.silence = 200ms}), "Codex connection closed or timed out.");
  EXPECT_EQ(openingFails([](Peer& peer) { peer.head(); }), "Codex connection closed or timed out.");
  EXPECT_EQ(callFails([](Peer& peer, const Json&) { peer.raw("\x81\x85maskHello"); }),
            "Invalid masked Codex server frame.");
  EXPECT_EQ(callFails([](Peer& peer, const Json&) { peer.raw("\x81\x7f\0\0\0\0\0\xf4\x24\x01"sv); }),
            "Codex history response is too large.");
  EXPECT_EQ(callFails([](Peer& peer, const Json&) { peer.raw("\x81\x01{"); }),
            "Codex sent a message that is not JSON.");
  EXPECT_EQ(callFails([](Peer& peer, const Json& request) { peer.respond(request, 5); }),
            "Invalid Codex response.");
  EXPECT_EQ(callFails([](Peer& peer, const Json& request) {
              peer.send({{"id", request["id"]}, {"error", Json::object()}});
            }),
            "Codex history request failed.");
  // Endless fragments end at the limit, empty ones at the deadline, as does a flood of pings.
  EXPECT_EQ(callFails([](Peer& peer, const Json&) {
              for (const std::string piece = Peer::bytes(0x00, std::string(900'000, ' '));;) peer.raw(piece);
            }),
            "Unsupported Codex frame.");
  // Where the machine is slow, these already end while opening: in the same words.
  const Limits brief{.call = 300ms, .silence = 1min};
  const auto timedOut = [](const std::string& words) {
    return words == "Codex history request exceeded its time or size limit." ||
           words == "Codex history request timed out.";
  };
  const auto empty = callFails(
      [](Peer& peer, const Json&) {
        for (;;) peer.raw("\0\0"sv);
      },
      brief);
  EXPECT_TRUE(timedOut(empty)) << empty;
  const auto pings = callFails(
      [](Peer& peer, const Json&) {
        for (;; peer.frame()) peer.raw("\x89\0"sv);
      },
      brief);
  EXPECT_TRUE(timedOut(pings)) << pings;
}

TEST(CodexConnection, TakesAMessageOfTheLargestSize) {
  CodexStandIn server([](Peer& peer, int) {
    peer.open();
    peer.request();
    const std::string start = R"({"id":2,"result":{"text":")";
    std::string text = start;
    text.resize(codex::kLargestMessage - 3, 'x');
    peer.raw(Peer::bytes(0x81, text + R"("}})"));
    peer.frame();
  });
  Connection connection(server.socket(), {}, kPatient);
  EXPECT_EQ(connection.callText("x", Json::object()).size(), codex::kLargestMessage - 18);
}

TEST(CodexConnection, StopsAtOnceAndRefusesLongPaths) {
  std::stop_source stop;
  CodexStandIn server([&](Peer& peer, int) {
    peer.open();
    peer.request();
    stop.request_stop();
    peer.frame();
  });
  Connection connection(server.socket(), stop.get_token(), {.call = 1h, .silence = 1h});
  EXPECT_THROW(connection.call("x", Json::object()), Cancelled);
  const auto words = [](const std::string& path) {
    try {
      Connection refused(path);
    } catch (const Failure& problem) {
      return problem.message();
    }
    return std::string();
  };
  EXPECT_EQ(words(std::string(104, 'p')), "Codex socket path is too long.");
  EXPECT_EQ(words("/nonexistent/" + std::string(90, 'p')), "The local Codex server is unavailable.");
  EXPECT_EQ(CodexLocalServer::socketPath({{{"CODEX_HOME", "/c/"}}, "/home/p", {}}),
            "/c//app-server-control/app-server-control.sock");
}

TEST(CodexHistory, TurnsBecomeMessagesOldestFirst) {
  std::string result = R"({"nextCursor":null,"data":[
    {"id":"t2","startedAt":1767323045,"completedAt":"soon","items":[
      {"id":"u1","type":"userMessage","content":[{"type":"text","text":"seen already"}]},
      {"id":"c1","type":"commandExecution","command":"ls","status":"inProgress","aggregatedOutput":"x"},
      {"id":"f1","type":"fileChange","status":"declined","durationMs":1949},
      {"id":"m1","type":"mcpToolCall","server":"kit","tool":"echo","status":"completed",
       "arguments":{"n":123456789012345678901234567890},"durationMs":50},
      {"id":"m2","type":"mcpToolCall","tool":"echo","status":"failed"},
      {"id":"p","type":"plan","text":"not shown"}, {"id":7,"type":"plan"}, 5,
      {"id":"a2","type":"agentMessage","text":"no time"}]},
    {"items":[
      {"id":"u1","type":"userMessage","content":[{"type":"text","text":" one"},{"type":"image"},
                                                 {"type":"text","text":"two\n "}]},
      {"id":"e","type":"agentMessage","text":" \n"},
      {"id":"a1","type":"agentMessage","text":"é\u00e9"}],
     "startedAt":1767323045.9,"completedAt":4e12}]})";
  std::vector<std::string> rows;
  for (const auto& [id, role, text, timestamp] : CodexLocalServer::messages(result))
    rows.push_back(id + "|" + role + "|" + text + "|" + timestamp.value_or("-"));
  EXPECT_EQ(rows,
            (std::vector<std::string>{
                "u1|user|one\n\ntwo|2026-01-02T03:04:05Z", "a1|assistant|éé|-",
                "c1|tool-running|Running · ls|-", "f1|tool|Declined · File changes · 1.9s|-",
                "m1|tool|Ran · kit · echo · 0.1s|-", "m2|tool|Failed · echo|-", "a2|assistant|no time|-"}));
  for (std::string bad : {R"({})", R"({"data":{}})", R"({"data":[1]})", R"({"data":[{"items":[{"id":"}]}]})"})
    EXPECT_THROW(CodexLocalServer::messages(bad), Failure) << bad;
}

Json thread(const Json& changes = Json::object()) {
  Json value{{"id", kThread}, {"status", {{"type", "idle"}}}, {"cwd", "/w"}};
  value.update(changes);
  return value;
}

TEST(CodexLive, ThreadsBecomeAgents) {
  const auto agent = CodexLive::agent(thread({{"name", "  "}, {"canAcceptDirectInput", true}}));
  ASSERT_TRUE(agent);
  HerdrAgent expected;
  expected.paneID = kThread;
  expected.session = "codex-live";
  expected.transcriptReference = kThread;
  expected.transcriptKind = "id";
  expected.title = "Codex · 0190c0de";
  expected.provider = "codex";
  expected.state = "idle";
  expected.context = "/w";
  expected.acceptsDirectInput = true;
  EXPECT_EQ(*agent, expected);
  EXPECT_EQ(CodexLive::agent(thread({{"name", " A name "}, {"parentThreadId", nullptr}}))->title, "A name");

  const auto state = [](const Json& status) {
    const auto found = CodexLive::agent(thread({{"status", status}}));
    return found ? found->state : "(none)";
  };
  EXPECT_EQ(state({{"type", "active"}}), "working");
  EXPECT_EQ(state({{"type", "active"}, {"activeFlags", {"busy", "AWAITing"}}}), "blocked");
  EXPECT_EQ(state({{"type", "active"}, {"activeFlags", {"waitingOnUserInput"}}}), "blocked");
  EXPECT_EQ(state({{"type", "idle"}, {"activeFlags", {"waitingOnApproval"}}}), "idle");
  EXPECT_EQ(state({{"type", "systemError"}}), "unknown");
  EXPECT_EQ(state({{"type", "notLoaded"}}), "(none)");
  for (const Json& hidden : {Json{{"parentThreadId", "x"}}, Json{{"ephemeral", true}}, Json{{"cwd", 1}},
                             Json{{"id", "no-uuid"}}, Json{{"status", "idle"}}})
    EXPECT_FALSE(CodexLive::agent(thread(hidden))) << hidden;
}

// The words with which a list over pages of ids fails, or how many ids there are. A page: how many ids, and
// the cursor behind them.
std::string paging(std::vector<std::pair<int, Json>> pages) {
  std::size_t count = 0;
  const std::string words = failure(
      [&](Peer& peer, int) {
        peer.open();
        int next = 0;
        for (const auto& [ids, cursor] : pages) {
          Json page{{"data", Json::array()}, {"nextCursor", cursor}};
          for (int i = 0; i < ids; ++i) page["data"].push_back(threadID(next++));
          peer.serve("thread/loaded/list", page);
        }
        peer.frame();
      },
      [&](Connection& connection) { count = CodexLive::loadedIDs(connection).size(); });
  return words == "(none)" ? std::to_string(count) : words;
}

TEST(CodexLive, PagesEndInTheWrittenWords) {
  EXPECT_EQ(paging({{600, "a"}, {400, nullptr}}), "1000");
  EXPECT_EQ(paging({{600, "a"}, {401, 5}}), "Codex live-session list exceeded its limit.");
  EXPECT_EQ(paging({{600, "a"}, {600, "a"}}), "Codex repeated a session page.");
  EXPECT_EQ(paging(std::vector<std::pair<int, Json>>(1, {0, Json()})), "0");
}

TEST(CodexLive, LeavesOutWhatGoesDuringThePassAndQueuesOnlyWhereAccepted) {
  CodexStandIn server([](Peer& peer, int) {
    peer.open();
    peer.serve("thread/loaded/list", {{"data", {threadID(3), threadID(2), threadID(1)}}});
    peer.serve("thread/read", {{"thread", thread({{"id", threadID(1)}, {"canAcceptDirectInput", true}})}});
    peer.send({{"id", peer.request()["id"]}, {"error", {{"message", "thread not found"}}}});
    peer.serve("thread/read",
               {{"thread", thread({{"id", threadID(3)},
                                   {"canAcceptDirectInput", true},
                                   {"status", {{"type", "active"}, {"activeFlags", {"waiting"}}}}})}});
    peer.frame();
  });
  const auto agents = CodexLive::list(server.socket());
  ASSERT_EQ(agents.size(), 2u);
  EXPECT_EQ(agents[0].paneID, threadID(1));
  EXPECT_EQ(agents[1].state, "blocked");

  TemporaryFolder folder;
  const auto tool =
      folder.write("codex", "#!/bin/sh\n[ \"$1\" = queue ] || exit 2\nprintf '%s\\n' \"$@\" > " +
                                (folder.path() / "said").string() +
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
  EXPECT_FALSE(std::filesystem::exists(folder.path() / "said"));
  EXPECT_EQ(queued(1, "bad"), "no such thread");
  EXPECT_EQ(queued(1, "good"), "queued");
  std::ifstream said(folder.path() / "said");
  EXPECT_EQ(
      std::string(std::istreambuf_iterator(said), {}),
      "queue\n--remote\nunix://" + server.socket() + "\n--thread\n" + threadID(1) + "\n--message\ngood\n");
}

TEST(CodexDiscovery, PublishesEachPassAndEmptiesTheListWhenOneFails) {
  VirtualLoop loop;
  BackgroundPool pool;
  Published<std::vector<HerdrAgent>> agents;
  std::atomic<bool> fails = false;
  std::set<std::string> watched;
  CodexDiscovery discovery(
      loop, pool,
      [&](std::stop_token) {
        if (fails) throw Failure("Codex closed the connection.");
        return std::vector{*CodexLive::agent(thread())};
      },
      agents, [&](const std::set<std::string>& threads) { watched = threads; });
  discovery.start();
  discovery.start();
  ASSERT_TRUE(loop.waitUntil([&] { return *discovery.passes() == 1; }));
  EXPECT_EQ(agents->size(), 1u);
  EXPECT_EQ(watched, std::set{kThread});
  fails = true;
  loop.runFor(2999ms);
  EXPECT_EQ(*discovery.passes(), 1u);
  loop.runFor(1ms);
  ASSERT_TRUE(loop.waitUntil([&] { return *discovery.passes() == 2; }));
  EXPECT_TRUE(agents->empty());
  EXPECT_TRUE(watched.empty());
  EXPECT_EQ(*discovery.error(), "Codex live connection unavailable: Codex closed the connection.");
  fails = false;
  loop.runFor(3s);
  ASSERT_TRUE(loop.waitUntil([&] { return *discovery.passes() == 3; }));
  EXPECT_EQ(agents->size(), 1u);
  EXPECT_FALSE(*discovery.error());
}

}  // namespace
}  // namespace ostrel
