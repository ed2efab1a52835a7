// What agents ask their person and has not been answered: the one owner of which requests are open, what may
// be answered to each, and whose they are. Windows, `serve` and whatever comes next show and answer requests
// through it alone. Main thread only.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "Agents/RequestAnswer.h"
#include "Claude/ClaudePermissionServer.h"
#include "Client/AgentInventory.h"
#include "Codex/CodexCard.h"
#include "Codex/CodexRequestController.h"
#include "Platform/Openers.h"
#include "Runtime/Background.h"
#include "Runtime/Published.h"
#include "Runtime/Task.h"

namespace ostrel {

// One request of Codex, with what is known of it by now.
struct CodexAsked {
  CodexRequest request;
  CodexCard card;
  bool sent = false;  // an answer is on its way
  std::string error;  // why one was not sent, or the link not opened; may be empty
  bool operator==(const CodexAsked&) const = default;
};

struct OpenRequest {
  // Names the request as it was shown: one that asks something else has another id.
  std::string id;
  std::string conversation;          // a UUID in lower case where the agent keeps to its own rules
  std::optional<std::string> agent;  // the id of the listed agent that asks, where one is known
  std::variant<ClaudePermissionRequest, CodexAsked> asked;

  const ClaudePermissionRequest* claude() const { return std::get_if<ClaudePermissionRequest>(&asked); }
  const CodexAsked* codex() const { return std::get_if<CodexAsked>(&asked); }
  // Every answer that it takes. Nothing else is taken.
  std::vector<RequestChoice> choices() const;
};

// What a face needs of open requests. `OpenRequests` is the program's, pictures and tests make up their own.
class RequestSource {
 public:
  // How the connection for an agent's Codex requests stands.
  struct Controls {
    std::string words;
    std::string error;  // may be empty
    bool connected = false;
    bool operator==(const Controls&) const = default;
  };

  RequestSource() = default;
  RequestSource(const RequestSource&) = delete;
  RequestSource& operator=(const RequestSource&) = delete;
  virtual ~RequestSource() = default;

  // All of them, in the order of `of`.
  virtual std::vector<OpenRequest> list() = 0;
  // What is asked in an agent's conversation: by Claude Code, oldest first, then by Codex in order of
  // arrival.
  virtual std::vector<OpenRequest> of(const HerdrAgent& agent) = 0;
  // Nothing for an agent whose requests can't come here.
  virtual std::optional<Controls> controls(const HerdrAgent& agent) = 0;
  // Sends the answer, once. Throws `Failure` with words for the person where the request has ended, an answer
  // is on its way already, or the request does not take this one; then nothing was sent.
  virtual void answer(const std::string& request, const RequestAnswer& answer) = 0;
  // Opens the link of a request in the person's browser; when that has worked, "done" is among its choices.
  // Throws `Failure` where there is no such request, or no link.
  virtual void openLink(const std::string& request) = 0;
  // Called when what is asked, or anything that is told of it here, may have changed.
  virtual Subscription observe(ChangeSignal::Observer observer) = 0;
};

class OpenRequests final : public RequestSource {
 public:
  struct Sources {
    ClaudePermissionServer& claude;
    CodexRequestController& codex;
    AgentInventory& inventory;
    const Preferences& preferences;
    bool asksCodex = false;     // whether Codex's requests come here at all
    UrlOpener* urls = nullptr;  // null where no browser can be reached
  };
  OpenRequests(MainLoop& loop, Background& pool, Sources sources);

  std::vector<OpenRequest> list() override;
  std::vector<OpenRequest> of(const HerdrAgent& agent) override;
  std::optional<Controls> controls(const HerdrAgent& agent) override;
  void answer(const std::string& request, const RequestAnswer& given) override;
  void openLink(const std::string& request) override;
  Subscription observe(ChangeSignal::Observer observer) override {
    return changed_.observe(std::move(observer));
  }

 private:
  OpenRequest entry(const ClaudePermissionRequest& request) const;
  OpenRequest entry(const CodexRequest& request) const;
  std::optional<OpenRequest> find(const std::string& id);
  void nameAgents(std::vector<OpenRequest>& requests) const;
  void forgetEndedLinks();
  Task<void> open(std::string id, std::string link);

  Background& pool_;
  Sources sources_;
  ChangeSignal changed_;
  std::set<std::string> openedLinks_;                // ids of requests
  std::map<std::string, std::string> linkProblems_;  // by id
  std::vector<Subscription> subscriptions_;
  TaskScope tasks_;
};

}  // namespace ostrel
