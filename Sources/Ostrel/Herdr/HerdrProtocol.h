// Herdr's JSON documents as the client's records, and a few questions about its vocabulary. Pure functions,
// any thread.
//
// The documents come from the standard output of the `herdr` command or from a session's socket. More than
// one shape is accepted, because Herdr's output changed between versions. Every decoder returns complete data
// or throws `Failure` with the user's words: a half-parsed list would look like agents disappearing.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "Runtime/Failure.h"
#include "Runtime/Json.h"

namespace ostrel::HerdrProtocol {

// A failure in Herdr's own words, made fit to be shown: one line of bounded length, without control
// characters.
class Refusal final : public Failure {
 public:
  explicit Refusal(std::string_view words, std::string_view code = {});
  // Whether it says that what was asked for does not exist.
  bool isNotFound() const { return notFound_; }

 private:
  bool notFound_;
};

// The object that a response document carries; throws what it reports as its error.
Json result(std::string_view data);

// `session list --json`: the names of the running sessions, sorted, each once.
std::vector<std::string> sessions(std::string_view data);
// The same with the absolute paths of their sockets; empty for one that tells none.
std::map<std::string, std::string> sockets(std::string_view data);

// `agent list`: the agents of one session, in the document's order. From a document, or from its result.
std::vector<HerdrAgent> agents(std::string_view data, const std::string& session,
                               const std::optional<HerdrMachine>& machine);
std::vector<HerdrAgent> agentsIn(const Json& result, const std::string& session,
                                 const std::optional<HerdrMachine>& machine);

// The screen text of a "pane.read" reply, from the document or from its result.
std::string output(std::string_view data);
std::string outputIn(const Json& result);

// Whether a reply may be typed now: the agent found in the pane is still the one that the person saw, and it
// waits for a prompt.
bool canPrompt(const std::optional<HerdrAgent>& current, const HerdrAgent& expected);

// Whether two transcript references mean one conversation.
bool sameConversation(const std::optional<std::string>& reference, const std::optional<std::string>& other,
                      std::string_view provider);

// Whether a screen shows Herdr's manager of lifecycle hooks, into which nothing must be typed.
bool isHookManager(std::string_view screen);

// The arguments that make a provider's command resume a conversation, or start a new one when `id` is absent.
// Throws `Failure` for an id that the provider can't have.
std::vector<std::string> resumeArguments(std::string_view provider, const std::optional<std::string>& id);

}  // namespace ostrel::HerdrProtocol
