// Answers that are typed: what the person entered, checked and made into the JSON that goes back as "result".
// Nothing is sent before it passes. Pure, any thread.
#pragma once

#include <map>
#include <string>

#include "Runtime/Json.h"

namespace ostrel::CodexForm {

using Answers = std::map<std::string, std::string>;  // as typed, by property key or question id

// The object for "content", from a form's schema. Throws `Failure` with what the person is to mend.
Json values(const Json& schema, const Answers& answers);

// Whether the form wants an entry for the property.
bool isRequired(const Json& schema, const std::string& key);

// The results, with sorted keys. The first two throw `Failure` as `values` does.
std::string formResult(const Json& schema, const Answers& answers);
std::string questionsResult(const Json& questions, const Answers& answers);
std::string skippedQuestions();
// For a step that the person has done elsewhere, behind a link.
std::string stepDone();

}  // namespace ostrel::CodexForm
