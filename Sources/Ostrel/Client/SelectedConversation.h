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

  // Calls `observer` after each change of any of them.
  std::vector<Subscription> observe(const std::function<void()>& observer) {
    std::vector<Subscription> all;
    const auto add = [&](auto&... each) { (all.push_back(each.observe(observer)), ...); };
    add(transcript, sessionDetails, transcriptNotice, loadingHistory, output, hasLoadedOutput, outputError);
    return all;
  }
};

}  // namespace ostrel
