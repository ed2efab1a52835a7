#include "DesktopNotifications.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>
#include <utility>

#include "Words.h"

namespace ostrel {

namespace {

const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
const QString kOpen = QStringLiteral("default");

}  // namespace

DesktopNotifications::DesktopNotifications(std::function<void(std::string_view)> complain)
    : complain_(std::move(complain)) {
  QDBusConnection bus = QDBusConnection::sessionBus();
  bus.connect({}, kPath, kService, QStringLiteral("ActionInvoked"), this, SLOT(invoked(uint, QString)));
  bus.connect({}, kPath, kService, QStringLiteral("NotificationClosed"), this, SLOT(closed(uint, uint)));
}

void DesktopNotifications::post(const Banner& banner) {
  const QString agent = words::of(banner.agent);
  if (const auto before = waiting_.find(agent); before != waiting_.end()) {
    *before = banner;
    return;
  }
  waiting_.insert(agent, std::nullopt);
  send(banner);
}

void DesktopNotifications::sent(const QString& agent) {
  const std::optional<Banner> next = waiting_.take(agent);
  if (next) post(*next);
}

void DesktopNotifications::send(const Banner& banner) {
  const QString agent = words::of(banner.agent);
  // Titles are text everywhere; bodies are not.
  const QString body = words::shown(banner.body);
  QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, kService, QStringLiteral("Notify"));
  call.setArguments({QStringLiteral("Ostrel"), ids_.value(agent, 0), QString(), words::shown(banner.title),
                     markup_ ? body.toHtmlEscaped() : body, QStringList{kOpen, QStringLiteral("Open")},
                     QVariantMap{{QStringLiteral("urgency"), QVariant::fromValue(uchar{1})}}, -1});
  auto* const watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, agent] {
    const QDBusPendingReply<uint> reply = *watcher;
    if (reply.isValid()) {
      // Services may give a new number although one was to be replaced.
      ids_[agent] = reply.value();
    } else {
      complainOnce();
    }
    watcher->deleteLater();
    sent(agent);
  });
}

void DesktopNotifications::requestPermission() {
  QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.isConnected()) return;  // which was said
  const QDBusMessage call =
      QDBusMessage::createMethodCall(kService, kPath, kService, QStringLiteral("GetCapabilities"));
  auto* const watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
    const QDBusPendingReply<QStringList> reply = *watcher;
    if (reply.isValid()) {
      markup_ = reply.value().contains(QStringLiteral("body-markup"));
    } else {
      complainOnce();
    }
    watcher->deleteLater();
  });
}

void DesktopNotifications::complainOnce() {
  if (const auto complain = std::exchange(complain_, {}))
    complain("no banners: the desktop has no notification service");
}

void DesktopNotifications::invoked(uint id, const QString& action) {
  const QString agent = ids_.key(id);
  if (action == kOpen && !agent.isEmpty() && clicked_) clicked_(agent.toStdString());
}

void DesktopNotifications::closed(uint id, uint) {
  if (const QString agent = ids_.key(id); !agent.isEmpty()) ids_.remove(agent);
}

}  // namespace ostrel
