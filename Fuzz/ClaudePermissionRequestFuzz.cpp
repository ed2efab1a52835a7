// Any line that a local program sends is refused, or becomes a request whose every answer is one line of
// JSON.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Claude/ClaudePermissionRequest.h"
#include "Require.h"
#include "Runtime/ShownText.h"

using namespace ostrel;

namespace {

using Answer = ClaudePermissionAnswer;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view line(reinterpret_cast<const char*>(data), size);
  const auto request = ClaudePermissionRequest::parse(line, "id", TimePoint());
  if (!request) return 0;
  require((request->tool == "AskUserQuestion") == !request->questions.empty());
  require(request->alwaysRules.empty() || request->suggestions);
  Answer::Answers answers;
  for (const auto& question : request->questions) answers.chosen[question.question] = {"one", "two\xff"};
  // What is on offer is taken, and what hides in a text is shown whichever way it is drawn.
  RequestAnswer given{.choice = request->choices().front().id};
  for (const auto& question : request->questions) given.entries[question.question] = {"one"};
  request->decided(given);
  require(text::unordered(text::inOrder(request->detail)) == text::marked(request->detail));
  for (const Answer& answer : {Answer{Answer::Allow{}}, Answer{Answer::AllowAlways{}},
                               Answer{Answer::Deny{std::string(line)}}, Answer{answers}}) {
    const std::string reply = json::dump(answer.reply(*request));
    const auto read = json::parse(reply);
    require(read && !reply.contains('\n'));
    const Json& decision = (*read)["hookSpecificOutput"]["decision"];
    require(decision["behavior"].is_string());
    if (const Json* input = json::member(decision, "updatedInput")) {
      require((*input)["answers"].size() == answers.chosen.size());
      for (const Json& text : (*input)["answers"]) require(text.is_string() || text.is_array());
    }
  }
  return 0;
}
