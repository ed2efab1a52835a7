#include "Codex/CodexCard.h"

#include <algorithm>
#include <utility>

#include "Codex/CodexAnswers.h"
#include "Codex/CodexForm.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

using Step = CodexCard::Step;

std::string pretty(const Json& value) { return std::string(text::trim(json::dumpPretty(value))); }

// A member that is there and says something.
const Json* given(const Json& object, std::string_view key) {
  const Json* const value = json::member(object, key);
  return value && !value->is_null() ? value : nullptr;
}

std::optional<std::string> commandIn(const Json& object) {
  const Json* const command = json::member(object, "command");
  if (!command || !command->is_array()) return json::string(object, "command");
  std::string joined;
  for (const Json& word : *command) {
    if (!word.is_string()) continue;
    if (!joined.empty()) joined += ' ';
    joined += word.get_ref<const std::string&>();
  }
  return joined;
}

void showCommand(CodexCard& card, const Json& params, const Json& item) {
  card.command = commandIn(params);
  if (!card.command) card.command = commandIn(item);
  card.folder = json::string(params, "cwd");
  if (!card.folder) card.folder = json::string(item, "cwd");
  // To allow the command is to allow these too.
  for (const char* const key : {"networkApprovalContext", "additionalPermissions"}) {
    if (const Json* const part = given(params, key))
      card.access = card.access ? *card.access + "\n" + pretty(*part) : pretty(*part);
  }
}

void showChanges(CodexCard& card, const Json& params, const Json& item) {
  card.writeAccess = json::string(params, "grantRoot");
  const Json* changes = given(params, "changes");
  if (!changes) changes = given(params, "fileChanges");
  if (!changes) changes = given(item, "changes");
  if (!changes) return;
  card.changesText = pretty(*changes);
  if (!changes->is_array()) return;
  for (const Json& change : *changes) {
    const Json* const kind = json::member(change, "kind");
    const auto word = kind && kind->is_object() ? json::string(*kind, "type") : json::string(change, "kind");
    card.changes.push_back({json::string(change, "path").value_or(""), word.value_or(""),
                            json::string(change, "diff").value_or("")});
  }
}

void showQuestions(CodexCard& card, const Json& params) {
  card.step = Step::questions;
  card.skippable = json::boolean(params, "isBlocking") == false;
  const Json* const questions = json::member(params, "questions");
  if (!questions || !questions->is_array()) return;
  for (const Json& question : *questions) {
    if (!question.is_object()) continue;
    CodexCard::Question shown{json::string(question, "id").value_or(""),
                              json::string(question, "header").value_or(""),
                              json::string(question, "question").value_or(""),
                              {},
                              json::boolean(question, "isOther").value_or(false),
                              json::boolean(question, "isSecret").value_or(false)};
    if (const Json* const options = json::member(question, "options"); options && options->is_array()) {
      for (const Json& option : *options) {
        if (const auto label = json::string(option, "label"))
          shown.options.push_back({*label, *label, json::string(option, "description").value_or("")});
      }
    }
    shown.freeText = shown.freeText || shown.options.empty();
    card.skippable = card.skippable || json::boolean(question, "isBlocking") == false;
    card.questions.push_back(std::move(shown));
  }
}

std::vector<CodexCard::Option> optionsOf(const Json& rules) {
  std::vector<CodexCard::Option> options;
  if (const Json* const entries = json::member(rules, "enum"); entries && entries->is_array()) {
    for (const Json& entry : *entries) {
      if (entry.is_string()) options.push_back({entry.get<std::string>(), entry.get<std::string>(), {}});
    }
  } else if (const Json* const titled = json::member(rules, "oneOf"); titled && titled->is_array()) {
    for (const Json& entry : *titled) {
      if (const auto value = json::string(entry, "const"))
        options.push_back({*value, json::string(entry, "title").value_or(*value), {}});
    }
  }
  return options;
}

void showForm(CodexCard& card, const Json& schema) {
  card.step = Step::form;
  const Json* const properties = json::member(schema, "properties");
  if (!properties || !properties->is_object()) return;
  for (const auto& [key, rules] : properties->items()) {
    CodexCard::Field field{key, json::string(rules, "title").value_or(key), {}, optionsOf(rules), false};
    const auto type = json::string(rules, "type");
    using Kind = CodexCard::Field::Kind;
    field.kind = type == "boolean"        ? Kind::boolean
                 : type == "array"        ? Kind::list
                 : !field.options.empty() ? Kind::choice
                                          : Kind::text;
    field.required = CodexForm::isRequired(schema, key);
    card.fields.push_back(std::move(field));
  }
}

// A web address that may be opened: nothing that runs or reads something on this machine.
bool isWebLink(const std::string& url) {
  const std::string lower = text::lowercase(url);
  for (const std::string_view scheme : {"https://", "http://"}) {
    if (!lower.starts_with(scheme)) continue;
    const std::string_view rest = std::string_view(url).substr(scheme.size());
    return !rest.empty() && rest.front() != '/' && !text::hasControlCharacter(url) &&
           rest.find_first_of(" <>\"\\^`{|}") == std::string_view::npos;
  }
  return false;
}

void showElicitation(CodexCard& card, const Json& params) {
  const Json* const meta = json::member(params, "_meta");
  if (meta && json::string(*meta, "codex_approval_kind")) {
    const Json* arguments = given(*meta, "tool_params");
    if (!arguments) arguments = given(*meta, "tool_params_display");
    card.tool = CodexCard::Tool{json::string(*meta, "tool_name").value_or(""),
                                arguments ? pretty(*arguments) : std::string()};
  }
  const auto mode = json::string(params, "mode");
  const Json* const schema = json::member(params, "requestedSchema");
  const auto url = json::string(params, "url");
  if ((mode == "form" || mode == "openai/form" || mode == "openaiForm") && schema &&
      json::string(*schema, "type") == "object") {
    showForm(card, *schema);
  } else if (mode == "url" && url && isWebLink(*url)) {
    card.step = Step::link;
    card.link = *url;
  } else {
    card.step = Step::unsupported;
    card.unsupported =
        "This app requests a secure verification step or a form this connector cannot render yet. You can "
        "decline or cancel here.";
  }
}

}  // namespace

CodexCard CodexCard::of(const CodexRequest& request, const std::optional<std::string>& itemText,
                        bool linkOpened) {
  const Json params = json::parse(request.payload).value_or(Json());
  const Json item = itemText ? json::parse(*itemText).value_or(Json()) : Json();
  CodexCard card;
  card.title = request.title();
  for (const char* const key : {"reason", "message"}) {
    if (auto words = json::string(params, key)) card.words.push_back(std::move(*words));
  }
  const std::string& method = request.method;
  if (method == "item/commandExecution/requestApproval" || method == "execCommandApproval") {
    showCommand(card, params, item);
  } else if (method == "item/fileChange/requestApproval" || method == "applyPatchApproval") {
    showChanges(card, params, item);
  } else if (method == "item/permissions/requestApproval") {
    const Json* access = given(params, "permissions");
    if (!access) access = given(params, "additionalPermissions");
    if (access) card.access = pretty(*access);
  } else if (method == "item/tool/requestUserInput") {
    showQuestions(card, params);
  } else if (method == "mcpServer/elicitation/request") {
    showElicitation(card, params);
  } else {
    card.step = Step::unsupported;
    card.unsupported = "This request type is not supported by the installed connector: " + method +
                       ". It has not been approved.";
  }
  card.choices = codexAnswers::choices(request, card, linkOpened);
  return card;
}

std::optional<std::string> CodexCard::itemKey(const CodexRequest& request) {
  const auto item = json::string(json::parse(request.payload).value_or(Json()), "itemId");
  if (!item) return std::nullopt;
  return request.threadID + ":" + *item;
}

}  // namespace ostrel
