// A Herdr made up by a test, for `HerdrLink`: sessions with panes, faults and events, in virtual time.
#pragma once

#include <algorithm>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "Client/HerdrLink.h"
#include "Herdr/HerdrProtocol.h"
#include "Runtime/Failure.h"
#include "Support/NoPorts.h"

namespace ostrel {

inline const std::string kRequestFailed =
    "Herdr request failed. Check the selected session and installed CLI version.";

// Commands come on background threads, so what they look at is changed inside `with`.
class FakeHerdr final : public NoHerdr {
 public:
  struct Pane {
    std::string state = "idle";
    std::string terminal = "t1";
    std::string title{};
  };
  struct Session {
    std::map<std::string, Pane> panes{};
    bool running = true;
    bool answers = true;
    bool silent = false;
    std::string refusal{};  // of `agent.list`
    std::string socket = "/s";
    std::int64_t protocol = 3;
  };

  std::optional<std::filesystem::path> find() override {
    const std::lock_guard lock(mutex_);
    return installed ? std::optional<std::filesystem::path>("/bin/herdr") : std::nullopt;
  }
  bool isExecutable(const std::filesystem::path& path) override { return path == "/chosen/herdr"; }
  std::string run(const std::filesystem::path&, const std::vector<std::string>& arguments, Duration limit,
                  std::stop_token) override {
    EXPECT_EQ(limit, std::chrono::seconds(8));
    return answer(arguments);
  }

  Task<Json> request(std::string path, std::string method, Json) override {
    const auto found =
        std::ranges::find_if(sessions, [&](const auto& each) { return each.second.socket == path; });
    if (found == sessions.end() || !found->second.answers) throw Failure("Herdr socket is unavailable.");
    const std::string name = found->first;
    if (found->second.silent) {
      co_await sleepFor(std::chrono::seconds(3));
      throw Failure("Herdr socket timed out.");
    }
    co_await sleepFor(std::chrono::milliseconds(1));
    const Session& session = sessions.at(name);
    if (method == "ping") co_return Json{{"protocol", session.protocol}};
    ++lists;
    if (!session.refusal.empty()) throw HerdrProtocol::Refusal(session.refusal);
    co_return rows(session);
  }

  Task<void> events(std::string path, Json wanted, std::function<void()> subscribed,
                    std::function<void(const Json&)> receive) override {
    ++subscriptions;
    const auto found =
        std::ranges::find_if(sessions, [&](const auto& each) { return each.second.socket == path; });
    if (found == sessions.end() || !found->second.answers || refusesStreams)
      throw Failure("Herdr socket is unavailable.");
    for (const Json& each : wanted) {
      const std::string pane = each.value("pane_id", "");
      if (!pane.empty() && !found->second.panes.contains(pane))
        throw HerdrProtocol::Refusal("pane " + pane + " not found");
    }
    Stream stream{.path = path, .wanted = wanted};
    streams.push_back(&stream);
    const std::unique_ptr<Stream, std::function<void(Stream*)>> open(
        &stream, [this](Stream* gone) { streams.remove(gone); });
    subscribed();
    for (;;) {
      co_await stream.flag.wait();
      for (; !stream.queue.empty() && !stream.broken; stream.queue.pop_front()) receive(stream.queue.front());
      if (stream.broken) throw Failure("Herdr disconnected.");
    }
  }

  template <class Work>
  auto with(Work work) {
    const std::lock_guard lock(mutex_);
    return work(*this);
  }
  int commandCount() {
    return with([](FakeHerdr& herdr) { return herdr.commands; });
  }
  // One event, to the streams that asked for it.
  void fire(const std::string& path, const Json& event) {
    const Json status{{"type", "pane.agent_status_changed"}, {"pane_id", event["data"].value("pane_id", "")}};
    for (Stream* const stream : streams) {
      if (stream->path != path) continue;
      const bool isStatus = event["event"] == "pane.agent_status_changed";
      if (isStatus != (stream->wanted.front().value("pane_id", "") != "")) continue;
      if (isStatus && std::ranges::find(stream->wanted, status) == stream->wanted.end()) continue;
      stream->queue.push_back(event);
      stream->flag.raise();
    }
  }
  void setState(const std::string& session, const std::string& pane, const std::string& state) {
    with([&](FakeHerdr& herdr) { herdr.sessions[session].panes[pane].state = state; });
    fire(sessions[session].socket,
         {{"event", "pane.agent_status_changed"}, {"data", {{"pane_id", pane}, {"agent_status", state}}}});
  }
  void setTitle(const std::string& session, const std::string& pane, const std::string& title) {
    with([&](FakeHerdr& herdr) { herdr.sessions[session].panes[pane].title = title; });
    fireRow("pane_updated", session, pane);
  }
  void fireRow(const char* kind, const std::string& session, const std::string& pane) {
    fire(sessions[session].socket,
         {{"event", kind}, {"data", {{"pane", row(pane, sessions[session].panes[pane])}}}});
  }
  void breakStreams() {
    for (Stream* const stream : streams) {
      stream->broken = true;
      stream->flag.raise();
    }
  }

  struct Stream {
    std::string path;
    Json wanted;
    WakeFlag flag{};
    std::deque<Json> queue{};
    bool broken = false;
  };
  std::map<std::string, Session> sessions;
  std::string schema = R"({"schemas":{},"protocol":3})";
  bool listFails = false;
  bool installed = true;
  bool refusesStreams = false;
  std::list<Stream*> streams;  // open ones
  int subscriptions = 0;       // tried, since the beginning
  int lists = 0;               // over a socket
  int commands = 0;

 private:
  static Json row(const std::string& id, const Pane& pane) {
    return {{"pane_id", id},
            {"agent", "claude"},
            {"title", pane.title},
            {"agent_status", pane.state},
            {"terminal_id", pane.terminal}};
  }
  static Json rows(const Session& session) {
    Json rows = Json::array();
    for (const auto& [id, pane] : session.panes) rows.push_back(row(id, pane));
    return {{"agents", rows}};
  }

  std::string answer(const std::vector<std::string>& arguments) {
    const std::lock_guard lock(mutex_);
    ++commands;
    const std::string words = fmt::format("{}", fmt::join(arguments, " "));
    if (words == "api schema --json") return schema;
    if (words == "session list --json") {
      if (listFails) throw Failure(kRequestFailed);
      Json list = Json::array();
      for (const auto& [name, session] : sessions)
        list.push_back({{"name", name}, {"running", session.running}, {"socket_path", session.socket}});
      return Json{{"sessions", list}}.dump();
    }
    const auto session = sessions.find(arguments.at(1));
    if (session == sessions.end() || !session->second.answers) throw Failure("no answer");
    if (!session->second.refusal.empty()) throw HerdrProtocol::Refusal(session->second.refusal);
    return rows(session->second).dump();
  }

  std::mutex mutex_;
};

}  // namespace ostrel
