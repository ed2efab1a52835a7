// What may be answered to a request of Codex, and what goes back for it: the choices of a card and the
// results that they stand for come from here alone. Pure, any thread.
#pragma once

#include <string>
#include <vector>

#include "Agents/RequestAnswer.h"
#include "Codex/CodexCard.h"
#include "Codex/CodexRequest.h"

namespace ostrel::codexAnswers {

// Every answer that the request takes as `card` shows it: what was entered first ("submit"), then "skip" and
// "done", then the decisions that Codex lists. "done", the step behind a link, once the link was opened.
std::vector<RequestChoice> choices(const CodexRequest& request, const CodexCard& card, bool linkOpened);

// The JSON to send as "result". Throws `Failure` with words for the person where `answer` is none of the
// choices, leaves something out, or brings what was not asked for. Entries go by the ids of questions and the
// keys of fields.
std::string result(const CodexRequest& request, const CodexCard& card, bool linkOpened,
                   const RequestAnswer& answer);

}  // namespace ostrel::codexAnswers
