// An open agent for tests, and actions that only note what was asked for.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Client/AgentActions.h"
#include "Client/ConversationSource.h"
#include "Platform/Openers.h"
#include "Runtime/Failure.h"

namespace ostrel {

struct FakeConversation final : ConversationSource, AgentActions, UrlOpener {
  SelectedConversation content;
  std::optional<HerdrAgent> open_;
  ChangeSignal changed;
  std::string refused;  // why nothing can be done; empty: everything can
  std::string done;     // "rename a=Title"
  std::string opened;   // the last address

  std::optional<HerdrAgent> agent() const override { return open_; }
  const SelectedConversation& shown() const override { return content; }
  std::string statusLabel(const HerdrAgent& agent) const override {
    return std::string(stateName(agent.state));
  }
  Subscription observe(ChangeSignal::Observer observer) override {
    return changed.observe(std::move(observer));
  }

  std::optional<std::string> refusal(AgentAction, std::string_view) override {
    return refused.empty() ? std::nullopt : std::optional(refused);
  }
  void open(std::string_view id, bool) override { note("open", id, ""); }
  void close() override { open_.reset(); }
  void rename(std::string_view id, std::string_view title) override { note("rename", id, title); }
  void link(std::string_view id, const std::string& path) override { note("link", id, path); }
  void unlink(std::string_view id) override { note("unlink", id, ""); }

  void open(const std::string& url) override { opened = url; }

 private:
  void note(const char* what, std::string_view id, std::string_view more) {
    if (!refused.empty()) throw Failure(refused);
    done = std::string(what) + " " + std::string(id) + "=" + std::string(more);
  }
};

}  // namespace ostrel
