// A made-up Codex app server on a real socket: each connection is served by the test's own script on a
// thread.
#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "Runtime/Json.h"
#include "Runtime/UniqueFd.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {

class CodexStandIn {
 public:
  // One connection as its server sees it. Every call throws `Gone` once the client has left.
  class Peer {
   public:
    struct Gone {};
    explicit Peer(int fd) : fd_(fd) {}
    // Answers the upgrade, "initialize" and takes "initialized".
    void open();
    std::string head();
    // The payload of the next frame; its opcode in `opcode`.
    std::string frame(int* opcode = nullptr);
    Json request() { return Json::parse(frame()); }
    // Reads a request, checks its method, gives it the result.
    Json serve(std::string_view method, const Json& result);
    void respond(const Json& request, const Json& result);
    // A text frame.
    void send(const Json& message) { raw(bytes(0x81, message.dump())); }
    void raw(std::string_view bytes);
    static std::string bytes(int first, std::string_view payload);

   private:
    std::string take(std::size_t count);
    UniqueFd fd_;
  };
  using Script = std::function<void(Peer&, int number)>;  // connections count from 0

  explicit CodexStandIn(Script script);
  // Ends every connection and joins the scripts.
  ~CodexStandIn();
  const std::string& socket() const { return socket_; }

 private:
  void accept();

  Script script_;
  TemporaryFolder folder_;
  std::string socket_;
  UniqueFd listener_;
  std::mutex mutex_;
  std::list<int> open_;
  std::list<std::thread> threads_;
  std::thread acceptor_;
};

}  // namespace ostrel
