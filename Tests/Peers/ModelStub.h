// A model on loopback that the real agents talk to: the Messages API for Claude Code (POST /v1/messages), the
// Responses API for Codex (POST /v1/responses), both as event streams.
//
// What it answers is told by the person's last message:
//   "[hold]"         it answers only once `release` was called
//   "[run COMMAND]"  it asks for COMMAND to be run in a shell, and says "Finished." once it is told the
//   result
//   "[use NAME {}]"  the same for any tool and its input; of Codex's tools one in a namespace is "SPACE.NAME"
//   "[patch FILE]"   the same for a patch that adds FILE (Codex only)
//   anything else    "Understood."
#pragma once

#include <condition_variable>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Runtime/Json.h"
#include "Runtime/UniqueFd.h"

namespace ostrel {

class ModelStub {
 public:
  ModelStub();
  ModelStub(const ModelStub&) = delete;
  ModelStub& operator=(const ModelStub&) = delete;
  ~ModelStub();

  int port() const { return port_; }
  // Lets answers that are held go, and those to come.
  void release();
  void hold();
  // Requests seen so far, "POST /v1/messages" and the like.
  std::vector<std::string> requests();
  // Whether Codex has told it these words as the result of a tool.
  bool wasTold(const std::string& words);

 private:
  void serve();
  void answer(int fd);
  std::string replyTo(const std::string& method, const std::string& path, const Json& body);
  void waitForRelease();

  UniqueFd listener_;
  int port_ = 0;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool released_ = false;
  bool closing_ = false;
  std::list<int> connections_;
  std::vector<std::string> requests_;
  std::string results_;
  std::list<std::thread> threads_;
  std::thread server_;
};

}  // namespace ostrel
