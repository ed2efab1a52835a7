// How an open request of an agent is answered, whoever asks and whichever face the person uses. Values; any
// thread.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace ostrel {

// One answer that a request takes. Every answer that can be given is among a request's choices.
struct RequestChoice {
  std::string id;     // unique among the choices of its request
  std::string title;  // the words on its button
  // Whether the agent may do something by it that it may not do otherwise: such an answer is offered only to
  // a person who was shown all of what it grants.
  bool grants = false;
  // What has to be entered with it: answers to the questions or fields of the request.
  bool takesEntries = false;
  bool operator==(const RequestChoice&) const = default;
};

// The letters under which a person may press the choices, one for each and empty where there is none: "Y" for
// the first that grants, "A" for the next, which holds for longer, and "N" for the first that refuses.
// Nothing where there is no more to decide than how to go on, and where answers are entered: a letter belongs
// to those.
std::vector<std::string> choiceKeys(const std::vector<RequestChoice>& choices);

// What the person decided.
struct RequestAnswer {
  std::string choice;  // its id; empty for the one that takes entries
  // What was chosen and typed, by the key of the question or field.
  std::map<std::string, std::vector<std::string>> entries{};
  // What to do instead; only beside a refusal, and only where the agent takes words with it.
  std::optional<std::string> message{};
  bool operator==(const RequestAnswer&) const = default;
};

}  // namespace ostrel
