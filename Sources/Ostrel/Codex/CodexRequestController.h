// The open requests of all joined Codex conversations, for those who show and answer them. Main thread only.
// Owns the worker; a request is answered once, whatever the person clicks.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Codex/CodexConnectionState.h"
#include "Codex/CodexRequest.h"
#include "Codex/CodexRequestWorker.h"
#include "Runtime/MainLoop.h"
#include "Runtime/Published.h"

namespace ostrel {

class CodexRequestController {
 public:
  explicit CodexRequestController(MainLoop& loop, CodexRequestWorker::Pace pace = {});
  CodexRequestController(const CodexRequestController&) = delete;
  CodexRequestController& operator=(const CodexRequestController&) = delete;
  ~CodexRequestController();

  // Starts the worker; does nothing when started before.
  void start(const std::string& socket);
  // The same with something else in the worker's place, which calls `receive` and outlives its use.
  void start(CodexRequestPort& port) { port_ = &port; }
  // Ends it, and forgets everything.
  void stop();

  // Which threads are to be joined, and stay joined.
  void watch(std::set<std::string> threads);

  // Sends `result`, JSON, for an open request of a joined thread; otherwise, and when an answer is on its way
  // already, does nothing and is false. What becomes of it is told by `requests` and `replyErrors`.
  bool answer(const CodexRequest& request, std::string result);

  // In order of arrival. A request stays until the server says that it is over.
  Published<std::vector<CodexRequest>>& requests() { return requests_; }
  // Keys of requests whose answer is on its way.
  Published<std::set<std::string>>& sent() { return sent_; }
  Published<std::set<std::string>>& connectedThreads() { return connectedThreads_; }
  // What the open requests are about: commands and file changes as JSON, by thread id + ":" + item id (see
  // `CodexCard::itemKey`).
  const std::map<std::string, std::string>& details() const { return details_; }
  ChangeSignal& detailsChanged() { return detailsChanged_; }
  // Why there is no connection.
  Published<std::optional<std::string>>& error() { return error_; }
  // Why an answer was not sent, by the request's key.
  Published<std::map<std::string, std::string>>& replyErrors() { return replyErrors_; }

  // One line for the person, above the requests of a conversation.
  std::string status(const std::string& thread) const;

  // Called once for each answer that is handed to the worker.
  std::function<void()> onAnswer;

  void receive(const CodexRequestEvent& event);

 private:
  void on(const codexevent::Reset& event);
  void on(const codexevent::Received& event);
  void on(const codexevent::Resolved& event);
  void on(const codexevent::Sent& event);
  void on(const codexevent::Connected& event);
  void on(const codexevent::Disconnected& event);
  void on(const codexevent::Failed& event);
  void on(const codexevent::Item& event);
  void clear();
  void dropDetails();
  void setSent(const std::string& key, bool sent);
  void setReplyError(const std::string& key, std::optional<std::string> words);
  bool ofThisRun(const std::string& key) const { return key.starts_with(runID_ + ":"); }

  MainLoop& loop_;
  const CodexRequestWorker::Pace pace_;
  std::string runID_;
  std::set<std::string> wanted_;
  Published<std::vector<CodexRequest>> requests_;
  Published<std::set<std::string>> sent_;
  Published<std::set<std::string>> connectedThreads_;
  std::map<std::string, std::string> details_;
  ChangeSignal detailsChanged_;
  Published<std::optional<std::string>> error_;
  Published<std::map<std::string, std::string>> replyErrors_;
  CodexRequestPort* port_ = nullptr;  // null before the start and after the end
  // Tells events on their way from the worker whether it still counts.
  std::shared_ptr<bool> alive_;
  std::unique_ptr<CodexRequestWorker> worker_;
};

}  // namespace ostrel
