#include "Codex/CodexRequest.h"

#include <algorithm>
#include <array>
#include <utility>

#include "Runtime/Json.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

using Choice = CodexRequest::Choice;

constexpr std::string_view kCommand = "item/commandExecution/requestApproval";
constexpr std::string_view kOldCommand = "execCommandApproval";
constexpr std::string_view kFiles = "item/fileChange/requestApproval";
constexpr std::string_view kOldFiles = "applyPatchApproval";
constexpr std::string_view kAccess = "item/permissions/requestApproval";
constexpr std::string_view kQuestions = "item/tool/requestUserInput";
constexpr std::string_view kElicitation = "mcpServer/elicitation/request";
constexpr std::array kMethods = {kCommand, kOldCommand, kFiles, kOldFiles, kAccess, kQuestions, kElicitation};

Choice choice(std::string title, const Json& result) {
  std::string bytes = json::dump(result);
  return {text::base64(bytes), std::move(title), std::move(bytes)};
}

std::optional<std::string> titleOfWord(const std::string& word) {
  if (word == "accept") return "Allow once";
  if (word == "acceptForSession") return "Allow for this session";
  if (word == "decline") return "Deny";
  if (word == "cancel") return "Cancel action";
  return std::nullopt;
}

// A decision that brings a lasting rule along: named only where the rule can be shown whole.
std::optional<std::string> titleOfRule(const Json& decision) {
  if (const Json* const command = json::member(decision, "acceptWithExecpolicyAmendment")) {
    const Json* const words = json::member(*command, "execpolicy_amendment");
    if (!words || !words->is_array()) return std::nullopt;
    std::string title = "Always allow:";
    for (const Json& word : *words) {
      if (!word.is_string()) return std::nullopt;
      title += " " + word.get<std::string>();
    }
    return words->empty() ? title + " " : title;
  }
  if (const Json* const network = json::member(decision, "applyNetworkPolicyAmendment")) {
    const Json* const rule = json::member(*network, "network_policy_amendment");
    const auto host = rule ? json::string(*rule, "host") : std::nullopt;
    const auto action = rule ? json::string(*rule, "action") : std::nullopt;
    if (host && action) return text::capitalizedFirst(*action) + " future access to " + *host;
  }
  return std::nullopt;
}

// In the order of the buttons. Codex lists less than it takes: of a command it never lists "decline", with
// which the turn goes on, nor "acceptForSession" beside "accept", and takes both. An empty list is believed.
std::vector<Choice> decisions(const Json& params) {
  constexpr std::string_view kAllows[] = {"accept", "acceptForSession"};
  constexpr std::string_view kRefuses[] = {"decline", "cancel"};
  const Json* const offered = json::member(params, "availableDecisions");
  const bool listed = offered && offered->is_array();
  std::vector<Choice> choices;
  if (listed && offered->empty()) return choices;
  const auto word = [&](std::string_view decision) {
    const auto lists = [&](std::string_view one) {
      return std::ranges::find(*offered, Json(one)) != offered->end();
    };
    const bool taken = decision == "decline" || (decision == "acceptForSession" && listed && lists("accept"));
    if (!listed || taken || lists(decision))
      choices.push_back(choice(*titleOfWord(std::string(decision)), {{"decision", decision}}));
  };
  for (const auto decision : kAllows) word(decision);
  for (const Json& decision : listed ? *offered : Json::array()) {
    auto title = decision.is_object() ? titleOfRule(decision) : std::nullopt;
    if (title) choices.push_back(choice(std::move(*title), {{"decision", decision}}));
  }
  for (const auto decision : kRefuses) word(decision);
  return choices;
}

std::vector<Choice> access(const Json& params) {
  const Json* const asked = json::member(params, "permissions");
  if (!asked || !asked->is_object()) return {};
  Json granted = Json::object();
  // Only what a card describes is ever granted.
  for (const char* const key : {"network", "fileSystem"}) {
    const Json* const part = json::member(*asked, key);
    if (part && !part->is_null()) granted[key] = *part;
  }
  return {choice("Allow for this turn", {{"permissions", granted}, {"scope", "turn"}}),
          choice("Deny", {{"permissions", Json::object()}, {"scope", "turn"}})};
}

Json elicitationAction(std::string_view action) {
  return {{"action", action}, {"content", nullptr}, {"_meta", nullptr}};
}

}  // namespace

std::optional<CodexRequest> CodexRequest::parse(const CodexMessage& message, std::string_view epoch) {
  if (std::ranges::find(kMethods, message.method) == kMethods.end() || !message.id || !message.params)
    return std::nullopt;
  auto wireID = CodexMessage::wireID(*message.id);
  const auto params = json::parse(*message.params);
  if (!wireID || !params || !params->is_object()) return std::nullopt;
  auto thread = json::string(*params, "threadId");
  if (!thread) thread = json::string(*params, "conversationId");
  if (!thread || !text::canonicalUuid(*thread)) return std::nullopt;
  return CodexRequest{std::string(epoch), std::move(*wireID), std::move(*thread), message.method,
                      json::dump(*params)};
}

std::string CodexRequest::key(std::string_view epoch, std::string_view wireID) {
  return std::string(epoch) + ":" + text::base64(wireID);
}

CodexRequest::Subject CodexRequest::subject() const {
  if (method == kCommand || method == kOldCommand) {
    const Json params = json::parse(payload).value_or(Json());
    const Json* const network = json::member(params, "networkApprovalContext");
    return network && !network->is_null() ? Subject::network : Subject::command;
  }
  if (method == kFiles || method == kOldFiles) return Subject::files;
  if (method == kAccess) return Subject::access;
  if (method == kQuestions) return Subject::questions;
  return method == kElicitation ? Subject::app : Subject::other;
}

std::string CodexRequest::title() const {
  switch (subject()) {
    case Subject::command:
      return "Allow this command?";
    case Subject::network:
      return "Allow network access?";
    case Subject::files:
      return "Allow these file changes?";
    case Subject::access:
      return "Allow additional access?";
    case Subject::questions:
      return "Your answer is needed";
    case Subject::app:
      return json::string(json::parse(payload).value_or(Json()), "serverName")
          .value_or("Connected app request");
    case Subject::other:
      break;
  }
  return "Codex needs a response";
}

std::vector<Choice> CodexRequest::choices() const {
  const Json params = json::parse(payload).value_or(Json());
  if (method == kCommand || method == kFiles) return decisions(params);
  if (method == kOldCommand || method == kOldFiles)
    return {choice("Allow once", {{"decision", "approved"}}), choice("Deny", {{"decision", "denied"}}),
            choice("Cancel action", {{"decision", "abort"}})};
  if (method == kAccess) return access(params);
  if (method == kElicitation)
    return {choice("Decline", elicitationAction("decline")), choice("Cancel", elicitationAction("cancel"))};
  return {};
}

}  // namespace ostrel
