// The book-keeping of one run of the connection: which threads are joined, which requests are open, which
// were answered. Knows no socket and no clock; `CodexRequestWorker` feeds it, on its thread.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <variant>

#include "Codex/CodexRequest.h"
#include "Runtime/Json.h"

namespace ostrel {

// What the worker tells its owner. `key` is a request's `id()`; an epoch names a run of the connection.
namespace codexevent {
struct Reset {  // a run begins, or the connection failed
  std::string epoch;
  std::optional<std::string> error;
};
struct Received {
  CodexRequest request;
};
struct Resolved {  // the request is over
  std::string epoch, thread, key;
};
struct Sent {  // the answer went out
  std::string key;
};
struct Connected {  // the thread is joined
  std::string epoch, thread;
};
struct Disconnected {  // the thread was left
  std::string epoch, thread;
};
struct Failed {  // the answer was not sent
  std::string key, words;
};
struct Item {  // a command or a file change that an open request is about, as JSON without its output
  std::string epoch, thread, item, bytes;
};
}  // namespace codexevent
using CodexRequestEvent =
    std::variant<codexevent::Reset, codexevent::Received, codexevent::Resolved, codexevent::Sent,
                 codexevent::Connected, codexevent::Disconnected, codexevent::Failed, codexevent::Item>;

class CodexConnectionState {
 public:
  using Emit = std::function<void(CodexRequestEvent)>;
  // `emit` is copied.
  CodexConnectionState(std::string epoch, Emit emit) : epoch_(std::move(epoch)), emit_(std::move(emit)) {}

  const std::set<std::string>& connected() const { return connected_; }

  // A thread is being joined: its requests come before the server's response. Ends in one of the next two.
  void joining(const std::string& thread) { joining_ = thread; }
  void joined(const std::string& thread);
  void refused(const std::string& thread);
  // Nobody wants the thread any more. Its requests are over for us; the caller tells the server.
  void leave(const std::string& thread);
  // The items of a page of turns, for the cards of requests that refer to them.
  void turns(const std::string& thread, const Json& page);

  // Of items and requests.
  std::size_t keptBytes() const { return itemBytes_ + pendingBytes_; }

  // A message that is no response to a call.
  void event(std::string bytes);

  // The text to send for an answer, now taken as given; the caller sends it and emits `Sent`. Nothing, and
  // `Failed` is emitted, when the request is not open exactly as it was shown. Throws `Failure` when `result`
  // is not JSON.
  std::optional<std::string> answer(const CodexRequest& request, const std::string& result,
                                    const std::set<std::string>& desired);

 private:
  // What a joined thread does at the moment, until a request about it comes.
  struct Item {
    std::string thread, id, bytes;
  };

  void request(CodexRequest request);
  void item(const std::string& thread, const Json& item);
  // One item of a thread, or all of them.
  void forgetItems(const std::string& thread, const std::optional<std::string>& id);
  void tellItem(const std::string& subject);
  bool follows(const std::string& thread) const { return connected_.contains(thread) || joining_ == thread; }
  template <class Over>
  void resolveAll(const std::string& thread, Over over);

  const std::string epoch_;
  const Emit emit_;
  std::set<std::string> connected_;
  std::optional<std::string> joining_;
  std::map<std::string, CodexRequest> pending_;  // by key
  std::size_t pendingBytes_ = 0;                 // of their payloads
  std::map<std::string, std::string> subjects_;  // what they are about (`CodexCard::itemKey`), by key
  std::set<std::string> answered_;               // keys, all pending
  std::deque<Item> items_;                       // oldest first
  std::size_t itemBytes_ = 0;
};

}  // namespace ostrel
