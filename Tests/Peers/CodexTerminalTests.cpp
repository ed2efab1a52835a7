// Real Codex terminals: which row is whose, and how soon its light is right in `watch` and `serve`.
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>

#include "Codex/CodexLive.h"
#include "PeerWorld.h"
#include "Runtime/Files.h"
#include "Serving.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using CodexLocalServer::Connection;

std::string field(const Json& agent, std::string_view key) {
  return json::string(agent, key).value_or("(none)");
}

// When something was said of the agent of a folder: "state light", "loaded state" for a thread that rests
// untied, "gone".
class Timeline {
 public:
  void add(const fs::path& folder, const std::string& said) {
    const std::lock_guard guard(lock_);
    auto& moments = said_[folder.string()];
    if (moments.empty() || moments.back().said != said) moments.push_back({Clock::now(), said});
  }
  // The moment from `since` on at which this was said last; nothing when `limit` passes first.
  std::optional<Clock::time_point> when(const fs::path& folder, const std::string& said,
                                        Clock::time_point since, std::chrono::milliseconds limit = 40s) {
    std::optional<Clock::time_point> found;
    eventually(
        [&] {
          const std::lock_guard guard(lock_);
          for (const auto& moment : said_[folder.string()]) {
            if (moment.at >= since && moment.said == said) found = moment.at;
          }
          return found.has_value();
        },
        limit);
    return found;
  }
  std::string all(const fs::path& folder) {
    const std::lock_guard guard(lock_);
    std::string all;
    for (const auto& moment : said_[folder.string()]) all += moment.said + "; ";
    return all;
  }

 private:
  struct Moment {
    Clock::time_point at;
    std::string said;
  };
  std::mutex lock_;
  std::map<std::string, std::vector<Moment>> said_;
};

// Reads what `ostrelctl watch --json` or `serve` says, on a thread of its own.
class Listener {
 public:
  Listener(const PeerWorld& world, std::vector<fs::path> folders,
           std::function<std::optional<std::string>()> line)
      : folders_(std::move(folders)), line_(std::move(line)), thread_([this](const std::stop_token& stop) {
          while (!stop.stop_requested()) {
            if (const auto text = line_()) take(*text);
          }
        }) {
    (void)world;
  }
  Timeline& timeline() { return timeline_; }
  Json row(const fs::path& folder) {
    const std::lock_guard guard(lock_);
    return rows_[folder.string()];
  }

 private:
  void take(const std::string& text) {
    const auto list = json::parse(text);
    if (!list || !json::member(*list, "agents")) return;
    for (const fs::path& folder : folders_) {
      std::string said;
      Json row;
      for (const char* const part : {"agents", "loadedCodex"}) {
        const Json* const agents = json::member(*list, part);
        for (const Json& agent : agents ? *agents : Json::array()) {
          if (field(agent, "context") != folder.string()) continue;
          said += (said.empty() ? "" : " + ");
          said += std::string(part) == "agents" ? field(agent, "state") + " " + field(agent, "light")
                                                : "loaded " + field(agent, "state");
          row = agent;
        }
      }
      {
        const std::lock_guard guard(lock_);
        rows_[folder.string()] = row;
      }
      timeline_.add(folder, said.empty() ? "gone" : said);
    }
  }

  std::vector<fs::path> folders_;
  std::function<std::optional<std::string>()> line_;
  Timeline timeline_;
  std::mutex lock_;
  std::map<std::string, Json> rows_;
  std::jthread thread_;
};

// What the app server itself says, and when.
class Truth {
 public:
  explicit Truth(const std::string& socket)
      : connection_(socket, stop_.get_token(), {.call = 90s, .silence = 90s}),
        thread_([this] { follow(); }) {}
  ~Truth() {
    stop_.request_stop();
    thread_.join();
  }
  Timeline& timeline() { return timeline_; }
  // The loaded threads' folders.
  static std::vector<std::string> loaded(const std::string& socket) {
    std::vector<std::string> folders;
    for (const HerdrAgent& agent : CodexLive::list(socket)) folders.push_back(agent.context);
    return folders;
  }

 private:
  void follow() {
    try {
      for (;;) {
        connection_.renewDeadline();
        const auto message = json::parse(connection_.message());
        if (!message || json::string(*message, "method") != "thread/status/changed") continue;
        const Json& params = (*message)["params"];
        const std::string type = params["status"]["type"];
        const bool waits =
            params["status"].contains("activeFlags") && !params["status"]["activeFlags"].empty();
        timeline_.add(params["threadId"].get<std::string>(), type != "active" ? type
                                                             : waits          ? "blocked"
                                                                              : "working");
      }
    } catch (const std::exception&) {
    }
  }

  std::stop_source stop_;
  Timeline timeline_;
  Connection connection_;
  std::thread thread_;
};

// What a plain terminal starts for itself outlives it: ended with the test, however that ends.
class ManagedDaemon {
 public:
  explicit ManagedDaemon(const PeerWorld& world) : folder_(world.home() / ".codex/app-server-daemon") {}
  ManagedDaemon(const ManagedDaemon&) = delete;
  ManagedDaemon& operator=(const ManagedDaemon&) = delete;
  ~ManagedDaemon() {
    for (const char* const name : {"daemon-updater.pid", "daemon.pid"}) {
      const auto file = json::parse(files::read(folder_ / name).value_or(""));
      const auto pid = file ? json::integer(*file, "pid") : std::nullopt;
      if (!pid || *pid <= 1) continue;
      const auto ends = [&] { return ::kill(static_cast<pid_t>(*pid), SIGTERM) != 0; };
      if (!eventually(ends, 5s)) ::kill(static_cast<pid_t>(*pid), SIGKILL);
    }
  }

 private:
  fs::path folder_;
};

// Two terminals at once, the plain one with the server that it starts for itself.
TEST(RealCodexTerminals, AreTiedToTheirThreadsAndLitAtOnce) {
  PeerWorld world;
  const fs::path plain = world.project("plain"), remote = world.project("remote");
  const std::string socket = (world.home() / ".codex/app-server-control/app-server-control.sock").string();
  const ManagedDaemon daemon(world);
  ChildProcess watching({world.ostrelctl(), "watch", "--json"}, world.variables());
  Serving serving(world.ostrelctl(), world.variables(), world.home());
  Listener watch(world, {plain, remote}, [&] { return watching.line(200ms); });
  Listener serve(world, {plain, remote}, [&] { return serving.process().line(200ms); });
  const auto started = Clock::now();

  std::optional<Terminal> first(std::in_place, world, plain, world.codex());
  ASSERT_TRUE(eventually([&] { return fs::exists(socket); }, 90s)) << first->screen();
  auto command = world.codex();
  command.insert(command.end(), {"--remote", "unix://" + socket});
  std::optional<Terminal> second(std::in_place, world, remote, command);

  std::map<fs::path, std::string> threads;
  std::optional<Truth> truth;
  for (const fs::path& folder : {plain, remote}) {
    // One row each, with a process and a terminal, and the conversation's id.
    for (Listener* const each : {&watch, &serve}) {
      ASSERT_TRUE(eventually(
          [&] {
            const Json row = each->row(folder);
            return field(row, "id").starts_with("10:codex-live") && !row["pid"].is_null();
          },
          90s))
          << each->timeline().all(folder) << json::dump(each->row(folder));
      EXPECT_NE(field(each->row(folder), "tty"), "(none)");
    }
    threads[folder] = field(watch.row(folder)["transcript"], "reference");
  }
  EXPECT_NE(threads[plain], threads[remote]);
  ASSERT_TRUE(watch.timeline().when(remote, "idle idle", started)) << watch.timeline().all(remote);
  truth.emplace(socket);
  const auto follows = [&](const fs::path& folder, const std::string& state, const std::string& said,
                           Clock::time_point since) {
    const auto true_ = truth->timeline().when(threads[folder], state, since);
    ASSERT_TRUE(true_) << state << ": " << truth->timeline().all(threads[folder]);
    for (Listener* const each : {&watch, &serve}) {
      const auto shown = each->timeline().when(folder, said, since);
      ASSERT_TRUE(shown) << said << ": " << each->timeline().all(folder);
      const auto late = std::chrono::duration_cast<std::chrono::milliseconds>(*shown - *true_);
      std::printf("%s %s: %lld ms\n", each == &watch ? "watch" : "serve", said.c_str(),
                  static_cast<long long>(late.count()));
      EXPECT_LT(late, 300ms) << said;
    }
  };
  const auto ready = [&](const Terminal& terminal) {
    return eventually([&] { return terminal.screen().find("stub-model") != std::string::npos; });
  };
  ASSERT_TRUE(ready(*first) && ready(*second)) << first->screen() << second->screen();

  auto since = Clock::now();
  first->submit("Please wait [hold]");
  follows(plain, "working", "working working", since);
  second->submit("Make it [run touch made]");
  follows(remote, "blocked", "blocked needsYou", since);
  ASSERT_TRUE(eventually([&] { return second->screen().find("Yes, proceed") != std::string::npos; }))
      << second->screen();
  since = Clock::now();
  second->key("Enter");
  follows(remote, "idle", "idle done", since);
  EXPECT_TRUE(fs::exists(remote / "made"));
  world.model().release();
  follows(plain, "idle", "idle done", since);

  // The terminal goes: nobody keeps its thread, the server unloads it, and it leaves the list.
  since = Clock::now();
  second.reset();
  EXPECT_TRUE(
      eventually([&] { return std::ranges::count(Truth::loaded(socket), remote.string()) == 0; }, 100s));
  for (Listener* const each : {&watch, &serve})
    EXPECT_TRUE(each->timeline().when(remote, "gone", since)) << each->timeline().all(remote);
  EXPECT_EQ(std::ranges::count(Truth::loaded(socket), plain.string()), 1);
  truth.reset();
}

}  // namespace
}  // namespace ostrel
