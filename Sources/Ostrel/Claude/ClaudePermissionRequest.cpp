#include "Claude/ClaudePermissionRequest.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "Runtime/Failure.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

constexpr std::string_view kQuestionTool = "AskUserQuestion";

// A member that is an array of objects; nothing at all where one of them is something else.
std::vector<const Json*> objects(const Json& object, std::string_view key) {
  const Json* list = json::member(object, key);
  if (!list || !list->is_array() ||
      !std::ranges::all_of(*list, [](const Json& one) { return one.is_object(); }))
    return {};
  std::vector<const Json*> found;
  for (const Json& one : *list) found.push_back(&one);
  return found;
}

std::string valueOf(const Json& object, std::string_view key) {
  return json::string(object, key).value_or(std::string());
}

std::string compact(const Json& value) { return json::dump(value); }

std::vector<ClaudePermissionRequest::Question> questionsOf(const Json& input) {
  std::vector<ClaudePermissionRequest::Question> questions;
  for (const Json* one : objects(input, "questions")) {
    auto question = json::string(*one, "question");
    if (!question) continue;
    std::vector<ClaudePermissionRequest::Option> options;
    for (const Json* option : objects(*one, "options")) {
      if (auto label = json::string(*option, "label"))
        options.push_back({*std::move(label), valueOf(*option, "description")});
    }
    questions.push_back({*std::move(question), valueOf(*one, "header"), std::move(options),
                         json::boolean(*one, "multiSelect").value_or(false)});
  }
  return questions;
}

// "mcp__server__the_tool" in words; nothing for names of another shape.
std::optional<std::string> serverTool(std::string_view tool) {
  if (!tool.starts_with("mcp__")) return std::nullopt;
  auto parts = text::split(tool, '_');
  std::erase(parts, std::string_view());
  if (parts.size() < 3) return std::nullopt;
  return fmt::format("Use {} · {}", parts[1], fmt::join(parts.begin() + 2, parts.end(), "_"));
}

struct Words {
  std::string title;
  std::string detail;
};

Words wordsFor(const std::string& tool, const Json& input) {
  struct Known {
    std::string_view tool, title, detailKey;
  };
  static constexpr Known kKnown[] = {
      {"Edit", "Edit a file", "file_path"},     {"MultiEdit", "Edit a file", "file_path"},
      {"Write", "Write a file", "file_path"},   {"NotebookEdit", "Edit a notebook", "notebook_path"},
      {"Read", "Read a file", "file_path"},     {"WebFetch", "Open a web page", "url"},
      {"WebSearch", "Search the web", "query"}, {"ExitPlanMode", "Approve the plan and start", "plan"},
  };
  if (tool == "Bash") {
    std::string title = valueOf(input, "description");
    return {title.empty() ? "Run a command" : std::move(title), valueOf(input, "command")};
  }
  if (tool == kQuestionTool) return {"Answer a question", ""};
  if (const auto* known = std::ranges::find(kKnown, tool, &Known::tool); known != std::end(kKnown))
    return {std::string(known->title), valueOf(input, known->detailKey)};
  std::string detail = json::dumpPretty(input);
  detail.pop_back();  // its newline
  return {serverTool(tool).value_or("Use " + tool), std::move(detail)};
}

// What a tool would write, as it stands in its input. Where a file is written whole, what stands in it now is
// not known here.
std::vector<FileChange> changesOf(const std::string& tool, const Json& input) {
  if (tool == "Write") return {{valueOf(input, "file_path"), "write", addedLines(valueOf(input, "content"))}};
  if (tool == "NotebookEdit") {
    const std::string mode = json::string(input, "edit_mode").value_or("replace");
    return {{valueOf(input, "notebook_path"), mode + " cell", addedLines(valueOf(input, "new_source"))}};
  }
  std::vector<const Json*> edits;
  if (tool == "Edit") edits = {&input};
  if (tool == "MultiEdit") edits = objects(input, "edits");
  std::string diff;
  for (const Json* const edit : edits) {
    if (!diff.empty()) diff += "@@\n";
    if (json::boolean(*edit, "replace_all").value_or(false)) diff += "@@ every occurrence @@\n";
    diff += fragmentDiff(valueOf(*edit, "old_string"), valueOf(*edit, "new_string"));
  }
  if (edits.empty()) return {};
  return {{valueOf(input, "file_path"), "edit", std::move(diff)}};
}

Json decision(const ClaudePermissionAnswer::Deny& deny, const ClaudePermissionRequest&) {
  return {{"behavior", "deny"},
          {"message", deny.message.value_or("The user declined this in Ostrel.")},
          {"interrupt", !deny.message}};
}

Json decision(const ClaudePermissionAnswer::Answers& answers, const ClaudePermissionRequest& request) {
  Json given = Json::object();
  for (const auto& question : request.questions) {
    const auto found = answers.chosen.find(question.question);
    if (found == answers.chosen.end() || found->second.empty()) continue;
    given[question.question] =
        question.multiSelect ? fmt::format("{}", fmt::join(found->second, ", ")) : found->second.front();
  }
  Json input = json::parse(request.input).value_or(Json::object());
  if (!input.is_object()) input = Json::object();
  input["answers"] = std::move(given);
  return {{"behavior", "allow"}, {"updatedInput", std::move(input)}};
}

Json decision(const ClaudePermissionAnswer::Allow&, const ClaudePermissionRequest&) {
  return {{"behavior", "allow"}};
}

Json decision(const ClaudePermissionAnswer::AllowAlways&, const ClaudePermissionRequest& request) {
  Json allow{{"behavior", "allow"}};
  if (request.suggestions) {
    if (auto kept = json::parse(*request.suggestions)) allow["updatedPermissions"] = *std::move(kept);
  }
  return allow;
}

}  // namespace

std::optional<ClaudePermissionRequest> ClaudePermissionRequest::parse(std::string_view line, std::string id,
                                                                      TimePoint arrived) {
  const auto root = json::parse(line);
  if (!root) return std::nullopt;
  auto session = json::string(*root, "session_id");
  auto tool = json::string(*root, "tool_name");
  if (!session || !tool) return std::nullopt;

  const Json none = Json::object();
  const Json* member = json::member(*root, "tool_input");
  const Json& input = member && member->is_object() ? *member : none;

  ClaudePermissionRequest request;
  if (*tool == kQuestionTool) {
    request.questions = questionsOf(input);
    if (request.questions.empty()) return std::nullopt;
  }
  request.id = std::move(id);
  request.arrived = arrived;
  auto [title, detail] = wordsFor(*tool, input);
  request.title = std::move(title);
  request.detail = std::move(detail);
  request.sessionID = *std::move(session);
  request.tool = *std::move(tool);
  request.changes = changesOf(request.tool, input);
  request.input = compact(input);

  Json kept = Json::array();
  for (const Json* suggestion : objects(*root, "permission_suggestions")) {
    if (valueOf(*suggestion, "type") != "addRules" || valueOf(*suggestion, "behavior") != "allow") continue;
    kept.push_back(*suggestion);
    for (const Json* rule : objects(*suggestion, "rules")) {
      const auto name = json::string(*rule, "toolName");
      if (!name) continue;
      const auto content = json::string(*rule, "ruleContent");
      request.alwaysRules.push_back(content ? fmt::format("{}({})", *name, *content) : *name);
    }
  }
  if (!kept.empty()) request.suggestions = compact(kept);
  return request;
}

std::vector<RequestChoice> ClaudePermissionRequest::choices() const {
  if (!questions.empty()) return {{.id = "answer", .title = "Send", .grants = false, .takesEntries = true}};
  std::vector<RequestChoice> choices{{.id = "allow", .title = "Yes", .grants = true}};
  if (!alwaysRules.empty())
    choices.push_back({.id = "always", .title = "Yes, don't ask again", .grants = true});
  choices.push_back({.id = "deny", .title = "No"});
  return choices;
}

ClaudePermissionAnswer ClaudePermissionRequest::decided(const RequestAnswer& answer) const {
  const auto offered = choices();
  const auto choice = std::ranges::find(offered, answer.choice, &RequestChoice::id);
  if (choice == offered.end()) throw Failure("This choice is not on offer.");
  if (!choice->takesEntries && !answer.entries.empty()) throw Failure("This request asks no questions.");
  if (answer.message && choice->id != "deny") throw Failure("Only a refusal takes a message.");
  if (choice->id == "allow") return {ClaudePermissionAnswer::Allow{}};
  if (choice->id == "always") return {ClaudePermissionAnswer::AllowAlways{}};
  if (choice->id == "deny") {
    // A refusal without words ends Claude's turn, which is not what somebody meant who began to type.
    if (answer.message && text::trim(*answer.message).empty()) throw Failure("The message is empty.");
    return {ClaudePermissionAnswer::Deny{answer.message}};
  }
  for (const auto& [key, given] : answer.entries) {
    if (std::ranges::find(questions, key, &Question::question) == questions.end())
      throw Failure(fmt::format("\"{}\" is not one of the questions.", key));
  }
  for (const Question& question : questions) {
    const auto given = answer.entries.find(question.question);
    const bool missing =
        given == answer.entries.end() || given->second.empty() ||
        std::ranges::any_of(given->second, [](const std::string& one) { return text::trim(one).empty(); });
    if (missing) throw Failure("Answer each question before submitting.");
    if (!question.multiSelect && given->second.size() > 1)
      throw Failure(fmt::format("Give one answer to \"{}\".", question.question));
  }
  return {ClaudePermissionAnswer::Answers{answer.entries}};
}

std::string_view ClaudePermissionAnswer::name() const {
  if (const auto* deny = std::get_if<Deny>(&value)) return deny->message ? "redirect" : "deny";
  if (std::holds_alternative<Answers>(value)) return "question";
  return std::holds_alternative<AllowAlways>(value) ? "allow_always" : "allow";
}

Json ClaudePermissionAnswer::reply(const ClaudePermissionRequest& request) const {
  Json decided = std::visit([&](const auto& kind) { return decision(kind, request); }, value);
  return {{"hookSpecificOutput", {{"hookEventName", "PermissionRequest"}, {"decision", std::move(decided)}}}};
}

}  // namespace ostrel
