// Our end of Claude Code's permission hook: a Unix socket on which each waiting hook is one connection.
//
// A hook sends its question as one line and waits. It becomes a `ClaudePermissionRequest`; the user's answer
// goes back as one line, or the connection is closed without a byte, which leaves the decision to Claude
// Code's own prompt. That prompt is open all the while, so a request can end from there at any moment:
// whoever comes to `finish` first wins, and every later ending does nothing. A line that asks nothing
// (Claude Code tells of a form) is taken in and its connection closed at once.
//
// How the hub uses it: one instance for the whole run, made with `ClaudePermissions::socketPath`. `start`
// when discovery starts, before `ClaudePermissions::installAtLaunch`; `stop` before the program ends;
// `reconcilePermissions` at every refresh of the inventory. The last is no luxury: Claude Code does not end
// a hook whose prompt was answered "yes" in the terminal, so nothing else removes that card.
//
// Main thread only; nothing blocks, and no client holds up another. Nothing here is ever reported as a
// failure: where the server can't do its work, hooks fall through to the terminal.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include "Claude/ClaudeForms.h"
#include "Claude/ClaudePermissionRequest.h"
#include "Runtime/MainLoop.h"
#include "Runtime/Published.h"
#include "Runtime/UniqueFd.h"

namespace ostrel {

class ClaudePermissionServer {
 public:
  using Answer = ClaudePermissionAnswer;
  // Takes an event for the usage statistics: its name and properties.
  using Capture = std::function<void(std::string_view event, const Json& properties)>;
  using SeenState = ostrel::SeenState;
  using StateOf = StateOfConversation;

  // A client that sends nothing for so long before its line is complete is not waited for.
  static constexpr Duration kLineTime = std::chrono::seconds(5);
  // Bytes without a newline after which a client is given up.
  static constexpr std::size_t kLongestLine = 4'000'000;
  // Open at once, so that no local program can use up our descriptors. Further hooks are sent to the
  // terminal.
  static constexpr std::size_t kMostConnections = 256;
  // An agent's state lags behind its hook by less than this.
  static constexpr Duration kStateLag = std::chrono::seconds(2);
  // How long after finding the socket in use by another instance we look again.
  static constexpr Duration kTakenRetry = std::chrono::seconds(2);

  // `path` of the socket; an empty one, or one longer than an address holds, keeps the server off.
  ClaudePermissionServer(MainLoop& loop, std::string path, Capture capture = {});
  ClaudePermissionServer(const ClaudePermissionServer&) = delete;
  ClaudePermissionServer& operator=(const ClaudePermissionServer&) = delete;
  // As `stop`, but tells no observer.
  ~ClaudePermissionServer();

  // Begins to listen; does nothing when it already does. The file that a crash left behind is replaced. Where
  // another instance answers, its socket is left alone and looked at again later (a newer copy of the program
  // starts while the older one is still leaving). On any other failure the server stays off, and a later
  // `start` tries again.
  void start();
  // Closes every connection without a decision and removes the socket file.
  void stop();
  bool listening() const { return static_cast<bool>(listener_); }
  // Another instance had the socket when we last looked: its person gets the prompts.
  Published<bool>& taken() { return taken_; }

  // Open requests, oldest first.
  Published<std::vector<ClaudePermissionRequest>>& requests() { return requests_; }

  // Conversations that show their person a form in the terminal: their ids, in lower case.
  Published<std::set<std::string>>& forms() { return forms_.open(); }

  // Sends the user's answer, unless the request has ended meanwhile.
  void answer(const ClaudePermissionRequest& request, const Answer& answer);
  // Ends a request: with a reply, or (nothing) without a decision. An unknown id is ignored.
  void finish(std::string id, const std::optional<Json>& reply);
  // Ends, without a decision, the requests whose agents no longer wait, as somebody saw who looked after the
  // request had come. A request whose agent isn't known stays. Forms of sessions that rest go too.
  void reconcilePermissions(const StateOf& stateOf);

 private:
  struct Connection {
    UniqueFd fd;
    std::string bytes;      // what was read of the line, later what is left to be sent
    std::string requestID;  // once the line was understood
    Watch watch;
    Timer deadline;
  };
  using Key = std::uint64_t;

  bool bindListener();
  void watchListener();
  void acceptWaiting();
  void readMore(Key key);
  void received(Key key);
  void writeMore(Key key);
  void expectBytes(Key key);
  bool watch(Key key, Interest interest, void (ClaudePermissionServer::*ready)(Key));
  void hungUp(Key key);
  void close();

  MainLoop& loop_;
  const std::string path_;
  const Capture capture_;
  UniqueFd listener_;
  Watch listenerWatch_;
  Timer retry_;  // set while another instance has the socket, or while descriptors are short
  Published<bool> taken_{false};
  dev_t device_ = 0;  // of the socket file that is ours
  ino_t inode_ = 0;
  std::map<Key, Connection> connections_;
  Key nextKey_ = 0;
  Published<std::vector<ClaudePermissionRequest>> requests_;
  ClaudeForms forms_;
};

}  // namespace ostrel
