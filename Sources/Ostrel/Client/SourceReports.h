// What the sources of agents and of requests say of themselves: whether they have told what they know, and
// what they could not do. Main thread only.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Claude/ClaudePermissionServer.h"
#include "Claude/HookFollower.h"
#include "Client/CodexDiscovery.h"
#include "Client/HerdrLink.h"
#include "Client/LocalDiscovery.h"
#include "Client/ManagedServer.h"
#include "Codex/CodexRequestController.h"
#include "Runtime/Published.h"

namespace ostrel {

// Words are for the person.
struct SourceReport {
  bool scanned = false;               // agents outside Herdr have been looked for at least once
  bool complete = false;              // every source that runs has told what it knows at least once
  std::optional<std::string> scan{};  // why the last scan failed
  bool herdrWanted = false;           // a link is; the next two are of it
  std::string herdrStatus{};          // "Connected · 2 sessions"
  std::optional<std::string> herdr{};
  std::optional<std::string> codex{};          // why loaded conversations are not known
  std::optional<std::string> codexRequests{};  // why Codex's requests can't come
  std::set<std::string> codexThreads{};        // ids of the joined ones
  bool promptsElsewhere = false;               // another program has Claude Code's prompts
  std::optional<ClaudeHookState> hook{};       // nothing where nobody puts it in
  std::vector<std::string> problems{};  // why the list may not be whole: the weightier first, each said once
  bool operator==(const SourceReport&) const = default;
};

class SourceReports {
 public:
  struct Sources {
    LocalDiscovery& local;
    HerdrLink& link;
    ManagedServer& managed;
    CodexDiscovery* codex;  // null: Codex is not asked
    CodexRequestController& codexRequests;
    ClaudePermissionServer& permissions;
    HookFollower* hook;  // null: nobody puts it in
  };
  explicit SourceReports(Sources sources);

  const Published<SourceReport>& report() const { return report_; }
  // The report's `complete`, as it is in this moment.
  bool complete() const;

 private:
  SourceReport now() const;

  Sources sources_;
  Published<SourceReport> report_;
  std::vector<Subscription> subscriptions_;
};

}  // namespace ostrel
