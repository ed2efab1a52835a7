// What is shown of the agent that the person has open. `SelectedAgent` writes it, views read it. Main thread
// only.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Conversations/AgentTranscript.h"
#include "Runtime/Published.h"

namespace ostrel {

struct SelectedConversation {
  // The conversation, oldest first, and what is known of the session.
  Published<std::vector<AgentTranscriptMessage>> transcript;
  Published<AgentSessionDetails> sessionDetails;
  // Why there are no messages, or no newer ones.
  Published<std::optional<std::string>> transcriptNotice;
  // A first look at the conversation is under way, with nothing to show yet.
  Published<bool> loadingHistory{false};
  // The terminal's text, whether any has come, and why none can be read.
  Published<std::string> output;
  Published<bool> hasLoadedOutput{false};
  Published<std::optional<std::string>> outputError;

  // Calls `observer` after each change of what was said, or of what is in the terminal.
  std::vector<Subscription> observeConversation(const std::function<void()>& observer) const {
    return observed(observer, transcript, sessionDetails, transcriptNotice, loadingHistory);
  }
  std::vector<Subscription> observeOutput(const std::function<void()>& observer) const {
    return observed(observer, output, hasLoadedOutput, outputError);
  }

 private:
  static std::vector<Subscription> observed(const std::function<void()>& observer, const auto&... values) {
    std::vector<Subscription> all;
    (all.push_back(values.observe(observer)), ...);
    return all;
  }
};

}  // namespace ostrel
