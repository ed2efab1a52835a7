// What a person can do about Herdr: attach to its sessions, start one, leave it, choose its program and
// session, install its integrations; and how all that stands. Main thread only.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Client/HerdrLink.h"
#include "Client/IntegrationSetup.h"
#include "Client/ManagedServer.h"
#include "Client/OpenAgent.h"
#include "Platform/Preferences.h"
#include "Runtime/Published.h"
#include "Runtime/Task.h"

namespace ostrel {

struct HerdrFacts {
  std::string status{};                // of the link, in a line: "Connected · 2 sessions"
  std::optional<std::string> error{};  // why there is none, or not with every session
  bool active = false;                 // a link is wanted
  bool connecting = false;
  bool connected = false;
  bool starting = false;  // a session of the product's own
  std::vector<HerdrIntegration> integrations{};
  std::vector<std::string> recommended{};  // integrations worth installing
  bool integrationsBusy = false;
  std::optional<std::string> integrationMessage{};
};

class HerdrConnection {
 public:
  struct Parts {
    HerdrLink& link;
    ManagedServer& managed;
    IntegrationSetup& integrations;
    OpenAgent& open;
    Preferences& preferences;
  };
  HerdrConnection(MainLoop& loop, Parts parts);

  // As the person wanted it last.
  void restore();
  // Attaches to the sessions that run. What is open is closed. The second goes by the settings as they are
  // stored, and does nothing where no Herdr is installed, without a word.
  void connect();
  void connectWhereInstalled();
  // Makes sure of a session first, by a server of the product's own if need be. Starting one counts as the
  // wish to have one from then on.
  void connectManaged();
  void startSession();
  // `forget`: not at the next launch either.
  void disconnect(bool forget);

  // The program (empty: search) and the session (empty: all), in force from the next connection on.
  void setExecutable(std::string path) { parts_.link.executablePath().set(std::move(path)); }
  void setSession(std::string name) { parts_.link.sessionName().set(std::move(name)); }
  const std::string& executable() const { return *parts_.link.executablePath(); }
  const std::string& session() const { return *parts_.link.sessionName(); }

  // One operation runs at a time; one asked for meanwhile is dropped.
  void checkIntegrations() { parts_.integrations.check(); }
  void install(std::vector<std::string> integrations) {
    parts_.integrations.install(std::move(integrations));
  }
  void installRecommended() { install(*recommended_); }

  HerdrFacts facts() const;
  // Called when the facts may have changed.
  Subscription observe(ChangeSignal::Observer observer) { return changed_.observe(std::move(observer)); }

 private:
  Task<void> ensureAndConnect();

  Parts parts_;
  Published<std::vector<std::string>> recommended_;
  ChangeSignal changed_;
  std::vector<Subscription> subscriptions_;
  TaskScope tasks_;
};

}  // namespace ostrel
