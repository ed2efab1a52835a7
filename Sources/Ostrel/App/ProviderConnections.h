// Whether the two providers with connections of their own, Codex and Claude Code, are installed and signed
// in; and the way to sign in. Main thread only; the checks run in the background.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "Agents/HerdrAgent.h"
#include "App/InterfaceState.h"
#include "App/OstrelModel.h"
#include "App/TerminalLauncher.h"
#include "Discovery/CommandLineTools.h"
#include "Platform/Openers.h"
#include "Runtime/Background.h"
#include "Runtime/Published.h"
#include "Runtime/Task.h"

namespace ostrel {

class ProviderConnections {
 public:
  struct Ports {
    MainLoop& loop;
    Background& pool;
    const CommandLineTools& tools;
    TerminalLauncher& terminal;
    UrlOpener& urls;
  };
  // A provider's own tool that does not answer within this is ended and judged by what it said.
  static constexpr Duration kCheckLimit = std::chrono::seconds(10);
  // While somebody signs in, and looks at the connections, they are checked this often ...
  static constexpr Duration kSignInInterval = std::chrono::seconds(3);
  // ... this many times.
  static constexpr int kSignInChecks = 40;
  // The program coming to the front checks them at most this often.
  static constexpr Duration kActivationInterval = std::chrono::minutes(1);

  // Herdr's executable is looked for at most this often, unless the person has chosen another.
  static constexpr Duration kSearchInterval = std::chrono::seconds(5);

  // `model` shows what was asked of the person, `shown` says whether the connections are looked at.
  ProviderConnections(Ports ports, OstrelModel& model, const InterfaceState& shown);

  // No entry for a provider before its first check. A state gives way to the next without `checking` in
  // between, except `missing`.
  Published<std::map<AgentProvider, ConnectionState>> connections;

  // Where Herdr is; not known before the first search has ended.
  struct Place {
    bool known = false;
    std::optional<std::filesystem::path> executable{};
    bool operator==(const Place&) const = default;
  };
  Published<Place> herdr;
  // Looks for it in the background, for somebody who sees it: as often as it is called, within
  // `kSearchInterval`. `chosen` is the person's own choice; empty: what is installed.
  void lookForHerdr(const std::string& chosen);

  // Checks both; a check that still runs is left to finish.
  void refreshConnections();
  // No check or search runs at present.
  bool idle() const { return pending_.empty() && !searching_; }
  // Opens the provider's sign-in in a terminal, or its setup guide where it is not installed.
  void connect(AgentProvider provider);
  // The program has come to the front.
  void becameActive();

  // What the answers of the status commands mean. Pure.
  static ConnectionState ofCodex(int status, std::string_view output);
  static ConnectionState ofClaude(int status, std::string_view output);

 private:
  Task<void> check(AgentProvider provider);
  Task<std::optional<std::filesystem::path>> find(std::string name);
  Task<void> search();
  Task<void> signIn(AgentProvider provider);
  Task<void> openTerminal(std::string command, std::string name);
  Task<void> openGuide(std::string url);
  void setState(AgentProvider provider, ConnectionState state);
  bool watched() const;
  void followSignIn();

  Ports ports_;
  OstrelModel& model_;
  const InterfaceState& shown_;
  std::set<AgentProvider> pending_;
  std::optional<TimePoint> lastActivation_;
  std::string chosenHerdr_;
  std::optional<TimePoint> searched_;
  bool searching_ = false;
  int signInChecks_ = 0;  // still to be made
  Timer refreshTimer_;
  Subscription panel_;
  Subscription page_;
  TaskScope tasks_;
};

}  // namespace ostrel
