// Codex's local app server: JSON requests over a WebSocket over a Unix socket.
//
// Every use of the server makes a connection of its own. Everything here blocks and runs on a background
// thread; a stop token ends any wait at once with `Cancelled`. All other failures are `Failure`s in the
// user's words.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "Codex/CodexFrames.h"
#include "Conversations/AgentTranscript.h"
#include "Platform/Environment.h"
#include "Runtime/Failure.h"
#include "Runtime/Json.h"
#include "Runtime/MainLoop.h"
#include "Runtime/UniqueFd.h"

namespace ostrel::CodexLocalServer {

// What a connection fails with where no server listens.
inline constexpr char kUnavailable[] = "The local Codex server is unavailable.";

// Below `CODEX_HOME`, else below ~/.codex.
std::string socketPath(const Environment& environment);

// The server understood a call and refused it, in its own words: the connection stands.
class Refusal final : public Failure {
 public:
  using Failure::Failure;
};

struct Limits {
  Duration call = std::chrono::seconds(12);    // from a request to its response
  Duration silence = std::chrono::seconds(3);  // of the peer, while bytes are wanted or to be taken
};

// One connection, used by one thread at a time. After any failure but a `Refusal` it is of no more use.
class Connection {
 public:
  // Connects, upgrades and introduces itself; a connection that exists is ready for calls.
  explicit Connection(const std::string& socket, std::stop_token stop = {}, Limits limits = {});
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // The `result` of a request, an object.
  Json call(std::string_view method, const Json& params);
  // The same as the server wrote it, for results of megabytes.
  std::string callText(std::string_view method, const Json& params);

  // The next whole text message. Pings are answered on the way. Reads nothing behind it, so that the
  // descriptor is readable exactly when more waits.
  std::string message();
  // The same without waiting: nothing when no whole message has come yet. What came of one is kept; a peer
  // that falls silent in the middle of it is given the limit of silence.
  std::optional<std::string> arrived();
  // Whether a message has begun and not ended.
  bool midMessage() const { return midMessage_; }
  // Sends one frame.
  void frame(std::string_view payload, codex::Opcode opcode = codex::Opcode::text);

  // Gives the next reads and writes the time of one call. `callText` does so by itself.
  void renewDeadline();
  int fd() const { return fd_.get(); }

  // Gets each message that is not the response to the running call.
  std::function<void(std::string)> onEvent;

 private:
  struct Shutdown {
    int fd;
    void operator()() const;
  };

  void connect(const std::string& socket);
  void upgrade();
  std::size_t receive(std::span<char> space, bool begins);
  // The message that the bytes complete, if they do; a ping is answered.
  std::optional<std::string> took(std::size_t count);
  void write(std::string_view bytes);
  void checkStop() const;

  std::stop_token stop_;
  Limits limits_;
  UniqueFd fd_;
  std::optional<std::stop_callback<Shutdown>> stopping_;
  TimePoint deadline_;
  TimePoint lastBytes_;  // when some came
  bool midMessage_ = false;
  std::int64_t nextID_ = 0;
  codex::FrameReader reader_;
};

// The last 20 turns of a conversation.
AgentTranscriptSnapshot read(const std::string& socket, const std::string& id, std::stop_token stop = {});

// The messages of a result of "thread/turns/list" that lists the newest turn first; oldest first. Throws
// `Failure` where it has another shape. `result` may be given more capacity.
std::vector<AgentTranscriptMessage> messages(std::string& result);

// One item of a turn, as far as it is shown.
struct Item {
  std::optional<std::string> id, type, text, content, command, server, tool, status;
  std::optional<double> durationMs;
};
// The row for what an agent ran or changed; nothing for other items.
std::optional<AgentTranscriptMessage> toolActivity(const Item& item);

}  // namespace ostrel::CodexLocalServer
