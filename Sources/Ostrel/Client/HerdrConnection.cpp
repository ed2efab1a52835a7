#include "Client/HerdrConnection.h"

#include "Platform/PreferenceKeys.h"
#include "Runtime/Failure.h"

namespace ostrel {

HerdrConnection::HerdrConnection(MainLoop& loop, Parts parts) : parts_(parts), tasks_(loop) {
  HerdrLink& link = parts_.link;
  IntegrationSetup& setup = parts_.integrations;
  link.onConnect = [this] { checkIntegrations(); };
  const auto recommend = [this] { recommended_.set(parts_.integrations.recommended(*parts_.link.agents())); };
  subscriptions_.push_back(link.agents().observe(recommend));
  subscriptions_.push_back(setup.integrations().observe(recommend));
  const auto follow = [this](auto&... values) {
    (subscriptions_.push_back(values.observe([this] { changed_.notify(); })), ...);
  };
  follow(link.active(), link.connecting(), link.connected(), link.error(), link.sessionCount(),
         parts_.managed.starting(), setup.integrations(), setup.busy(), setup.message(), recommended_);
}

void HerdrConnection::restore() {
  parts_.link.readSettings();
  if (!parts_.preferences.get(preferenceKeys::kHerdrReconnect)) return;
  if (parts_.preferences.get(preferenceKeys::kHerdrManagedServer)) {
    connectManaged();
  } else {
    connect();
  }
}

void HerdrConnection::connect() {
  parts_.open.close();
  parts_.link.connect();
}

void HerdrConnection::connectWhereInstalled() {
  parts_.link.readSettings();
  parts_.open.close();
  parts_.link.connectWhereInstalled();
}

void HerdrConnection::startSession() {
  parts_.preferences.put(preferenceKeys::kHerdrManagedServer, true);
  connectManaged();
}

void HerdrConnection::connectManaged() {
  if (!*parts_.managed.starting()) tasks_.start(ensureAndConnect());
}

Task<void> HerdrConnection::ensureAndConnect() {
  try {
    co_await parts_.managed.ensureSession(true);
    connect();
  } catch (const Failure& failure) {
    parts_.link.error().set(failure.message());
  }
}

void HerdrConnection::disconnect(bool forget) {
  parts_.open.close(true);
  parts_.link.disconnect(forget);
}

HerdrFacts HerdrConnection::facts() const {
  HerdrLink& link = parts_.link;
  IntegrationSetup& setup = parts_.integrations;
  return {.status = link.status(),
          .error = *link.error(),
          .active = *link.active(),
          .connecting = *link.connecting(),
          .connected = *link.connected(),
          .starting = *parts_.managed.starting(),
          .integrations = *setup.integrations(),
          .recommended = *recommended_,
          .integrationsBusy = *setup.busy(),
          .integrationMessage = *setup.message()};
}

}  // namespace ostrel
