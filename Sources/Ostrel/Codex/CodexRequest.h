// One question of Codex to the person, in a form that can be compared byte for byte, and the answers that may
// be given by a button. What is typed becomes an answer through `CodexForm`; what the person is shown is a
// `CodexCard`. A value; pure, any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Codex/CodexMessage.h"

namespace ostrel {

struct CodexRequest {
  struct Choice {
    std::string id;  // base64 of `result`
    std::string title;
    std::string result;  // JSON with sorted keys: what goes back as "result"
    bool operator==(const Choice&) const = default;
  };

  std::string epoch;     // the run of the connection on which it came
  std::string wireID;    // JSON, as it goes back
  std::string threadID;  // as the server wrote it
  std::string method;
  std::string payload;  // JSON of "params" with sorted keys
  bool operator==(const CodexRequest&) const = default;

  // Nothing when the message is no request for a person.
  static std::optional<CodexRequest> parse(const CodexMessage& message, std::string_view epoch);
  // The identity of the request that bears `wireID`.
  static std::string key(std::string_view epoch, std::string_view wireID);
  std::string id() const { return key(epoch, wireID); }

  // What it is about.
  enum class Subject { command, network, files, access, questions, app, other };
  Subject subject() const;
  std::string title() const;
  // In the order of the buttons. Empty for what is typed, and for what can only be answered in the terminal.
  std::vector<Choice> choices() const;
};

}  // namespace ostrel
