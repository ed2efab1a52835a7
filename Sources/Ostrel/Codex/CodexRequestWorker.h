// The thread that holds the connection on which Codex asks: joins the wanted threads, receives their
// requests, writes the answers, leaves threads that are not wanted any more, so that the server can unload
// them. There is a connection only while a thread is wanted and for a moment after; otherwise nothing runs.
// One for each run of the program, owned by `CodexRequestController`.
//
// It meets its owner in a mailbox under one lock; a byte in a pipe says that something lies there. A
// connection that fails is made again 2 seconds later, for as long as the worker runs; each one is a run with
// an epoch of its own, so that nothing left from an old one can be answered on a new one.
#pragma once

#include <functional>
#include <mutex>
#include <set>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "Codex/CodexConnectionState.h"
#include "Codex/CodexLocalServer.h"
#include "Runtime/UniqueFd.h"

namespace ostrel {

// Where answers and the wanted threads go. Any thread may call these.
class CodexRequestPort {
 public:
  virtual void watch(std::set<std::string> threads) = 0;
  virtual void reply(CodexRequest request, std::string result) = 0;

 protected:
  ~CodexRequestPort() = default;
};

class CodexRequestWorker final : public CodexRequestPort {
 public:
  struct Pace {
    Duration sync = std::chrono::seconds(1);     // between looks at what is not joined yet, at most
    Duration retry = std::chrono::seconds(2);    // from a failure to the next connection
    Duration linger = std::chrono::seconds(30);  // of the connection when no thread is wanted
    CodexLocalServer::Limits limits;
  };

  // `emit` is called on the worker's thread, until the destructor returns.
  CodexRequestWorker(std::string socket, CodexConnectionState::Emit emit, Pace pace);
  CodexRequestWorker(const CodexRequestWorker&) = delete;
  CodexRequestWorker& operator=(const CodexRequestWorker&) = delete;
  // Stops, and waits for the thread, which leaves any wait at once.
  ~CodexRequestWorker();

  // Starts the thread; once.
  void start();

  void watch(std::set<std::string> threads) override;
  void reply(CodexRequest request, std::string result) override;
  // Any thread may call it.
  void stop();

 private:
  struct Reply {
    CodexRequest request;
    std::string result;
  };

  void run();
  void serve(const std::string& epoch);
  void sync(CodexLocalServer::Connection& connection, CodexConnectionState& state);
  void leave(CodexLocalServer::Connection& connection, CodexConnectionState& state,
             const std::string& thread);
  void join(CodexLocalServer::Connection& connection, CodexConnectionState& state, const std::string& thread);
  struct Ready {
    bool connection = false;  // has something to say
    bool mail = false;
  };
  Ready waitForWork(int connection, TimePoint until);
  void receive(CodexLocalServer::Connection& connection, CodexConnectionState& state);
  void answer(CodexLocalServer::Connection& connection, CodexConnectionState& state);
  void pause();
  std::set<std::string> desired();
  void ring();

  const std::string socket_;
  const CodexConnectionState::Emit emit_;
  const Pace pace_;
  UniqueFd wakeReader_, wakeWriter_;
  std::stop_source stopping_;
  std::mutex lock_;
  std::set<std::string> desired_;  // under `lock_`
  std::vector<Reply> replies_;     // under `lock_`
  std::thread thread_;
};

}  // namespace ostrel
