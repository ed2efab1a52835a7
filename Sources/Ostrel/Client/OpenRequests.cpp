#include "Client/OpenRequests.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "Client/ConversationLinks.h"
#include "Codex/CodexAnswers.h"
#include "Runtime/Failure.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

// The server may ask something else under a number that it has used: then it is another request.
std::string idOf(const CodexRequest& request) {
  return fmt::format("{}:{:x}", request.id(),
                     std::hash<std::string>()(request.method + "\n" + request.payload));
}

}  // namespace

std::vector<RequestChoice> OpenRequest::choices() const {
  return claude() ? claude()->choices() : codex()->card.choices;
}

OpenRequests::OpenRequests(MainLoop& loop, Background& pool, Sources sources)
    : pool_(pool), sources_(sources), tasks_(loop) {
  const auto follow = [this](auto&... values) {
    (subscriptions_.push_back(values.observe([this] { changed_.notify(); })), ...);
  };
  CodexRequestController& codex = sources_.codex;
  follow(sources_.claude.requests(), codex.requests(), codex.sent(), codex.connectedThreads(), codex.error(),
         codex.replyErrors(), codex.detailsChanged());
}

OpenRequest OpenRequests::entry(const ClaudePermissionRequest& request) const {
  return {request.id, text::lowercase(request.sessionID), {}, request};
}

OpenRequest OpenRequests::entry(const CodexRequest& request) const {
  CodexRequestController& codex = sources_.codex;
  const std::string id = idOf(request);
  const auto key = CodexCard::itemKey(request);
  const auto item = key ? codex.details().find(*key) : codex.details().end();
  CodexAsked asked{.request = request,
                   .card = CodexCard::of(
                       request, item == codex.details().end() ? std::nullopt : std::optional(item->second),
                       openedLinks_.contains(id)),
                   .sent = codex.sent()->contains(request.id()),
                   .error = {}};
  if (const auto problem = codex.replyErrors()->find(request.id()); problem != codex.replyErrors()->end()) {
    asked.error = problem->second;
  } else if (const auto link = linkProblems_.find(id); link != linkProblems_.end()) {
    asked.error = link->second;
  }
  return {id, text::lowercase(request.threadID), {}, std::move(asked)};
}

std::vector<OpenRequest> OpenRequests::list() {
  std::vector<OpenRequest> all;
  for (const ClaudePermissionRequest& request : *sources_.claude.requests()) all.push_back(entry(request));
  for (const CodexRequest& request : *sources_.codex.requests()) all.push_back(entry(request));
  nameAgents(all);
  return all;
}

// The one place that says which agent asks: the one that is in the conversation.
void OpenRequests::nameAgents(std::vector<OpenRequest>& requests) const {
  if (requests.empty()) return;
  for (const auto& listed : sources_.inventory.merged().all.entries()) {
    if (!listed->conversation) continue;
    for (OpenRequest& request : requests) {
      if (request.conversation == *listed->conversation) request.agent = listed->id;
    }
  }
}

std::vector<OpenRequest> OpenRequests::of(const HerdrAgent& agent) {
  const auto linked =
      agent.isCodexLive() ? std::optional(agent.paneID) : linkedConversation(agent, sources_.preferences);
  if (!linked) return {};
  const std::string conversation = text::lowercase(*linked);
  std::vector<OpenRequest> found;
  for (const ClaudePermissionRequest& request : *sources_.claude.requests()) {
    if (text::lowercase(request.sessionID) == conversation) found.push_back(entry(request));
  }
  for (const CodexRequest& request : *sources_.codex.requests()) {
    if (text::lowercase(request.threadID) == conversation) found.push_back(entry(request));
  }
  for (OpenRequest& request : found) request.agent = agent.id();
  return found;
}

std::optional<RequestSource::Controls> OpenRequests::controls(const HerdrAgent& agent) {
  if (!sources_.asksCodex) return std::nullopt;
  std::optional<std::string> thread;
  if (agent.isCodexLive()) thread = agent.paneID;
  for (const OpenRequest& request : of(agent)) {
    if (!thread && request.codex()) thread = request.codex()->request.threadID;
  }
  if (!thread) return std::nullopt;
  return Controls{sources_.codex.status(*thread), sources_.codex.error()->value_or(""),
                  sources_.codex.connectedThreads()->contains(*thread)};
}

std::optional<OpenRequest> OpenRequests::find(const std::string& id) {
  const auto& claude = *sources_.claude.requests();
  const auto asking = std::ranges::find(claude, id, &ClaudePermissionRequest::id);
  if (asking != claude.end()) return entry(*asking);
  for (const CodexRequest& request : *sources_.codex.requests()) {
    if (idOf(request) == id) return entry(request);
  }
  return std::nullopt;
}

void OpenRequests::answer(const std::string& id, const RequestAnswer& given) {
  const std::optional<OpenRequest> request = find(id);
  if (!request) throw Failure("This request has ended.");
  RequestAnswer answer = given;
  if (answer.choice.empty()) {
    // Entries alone mean the one choice that takes them.
    const auto choices = request->choices();
    const auto takes = std::ranges::find(choices, true, &RequestChoice::takesEntries);
    if (takes == choices.end()) throw Failure("This request takes no answers.");
    answer.choice = takes->id;
  }
  if (const ClaudePermissionRequest* const asked = request->claude()) {
    sources_.claude.answer(*asked, asked->decided(answer));
    return;
  }
  const CodexAsked& asked = *request->codex();
  if (asked.sent) throw Failure("An answer to this request is already on its way.");
  std::string result = codexAnswers::result(asked.request, asked.card, openedLinks_.contains(id), answer);
  if (!sources_.codex.answer(asked.request, std::move(result)))
    throw Failure("Codex is not connected. Nothing was sent.");
}

void OpenRequests::openLink(const std::string& id) {
  forgetEndedLinks();
  const std::optional<OpenRequest> request = find(id);
  if (!request) throw Failure("This request has ended.");
  if (!request->codex() || request->codex()->card.step != CodexCard::Step::link)
    throw Failure("This request has no link.");
  if (!sources_.urls) throw Failure("There is no browser to open the link in.");
  linkProblems_.erase(id);
  tasks_.start(open(id, request->codex()->card.link));
}

Task<void> OpenRequests::open(std::string id, std::string link) {
  try {
    co_await pool_.run([urls = sources_.urls, link = std::move(link)](std::stop_token) { urls->open(link); });
    openedLinks_.insert(id);
  } catch (const Failure& failure) {
    linkProblems_[id] = failure.message();
  }
  changed_.notify();
}

void OpenRequests::forgetEndedLinks() {
  std::set<std::string> open;
  for (const CodexRequest& request : *sources_.codex.requests()) open.insert(idOf(request));
  std::erase_if(openedLinks_, [&](const std::string& id) { return !open.contains(id); });
  std::erase_if(linkProblems_, [&](const auto& entry) { return !open.contains(entry.first); });
}

}  // namespace ostrel
