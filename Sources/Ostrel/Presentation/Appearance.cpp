#include "Appearance.h"

#include <QDBusConnection>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QGuiApplication>
#include <QPalette>
#include <QVariant>
#include <utility>

namespace ostrel {

namespace {

const QString kService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kSettings = QStringLiteral("org.freedesktop.portal.Settings");
const QString kLook = QStringLiteral("org.freedesktop.appearance");
const QString kScheme = QStringLiteral("color-scheme");
const QString kGnome = QStringLiteral("org.gnome.desktop.interface");
const QString kAnimations = QStringLiteral("enable-animations");
const QString kKde = QStringLiteral("org.kde.kdeglobals.KDE");
const QString kAnimationLength = QStringLiteral("AnimationDurationFactor");
constexpr char kProperty[] = "appearance";

// Portals wrap what they were asked for once more than what they tell.
QVariant unwrapped(QVariant value) {
  while (value.canConvert<QDBusVariant>()) value = value.value<QDBusVariant>().variant();
  return value;
}

}  // namespace

Appearance::Appearance(QQmlEngine& engine) { engine.setProperty(kProperty, QVariant::fromValue(this)); }

Appearance* Appearance::create(QQmlEngine* engine, QJSEngine*) {
  auto* const found = engine->property(kProperty).value<Appearance*>();
  QJSEngine::setObjectOwnership(found, QJSEngine::CppOwnership);
  return found;
}

void Appearance::followDesktop() {
  setDark(QGuiApplication::palette().color(QPalette::Window).lightness() < 128);
  QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.isConnected()) return;
  bus.connect(kService, kPath, kSettings, QStringLiteral("SettingChanged"), this,
              SLOT(settingChanged(QDBusMessage)));
  ask(kLook, kScheme);
  ask(kGnome, kAnimations);
  ask(kKde, kAnimationLength);
}

void Appearance::ask(const QString& space, const QString& key) {
  QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, kSettings, QStringLiteral("Read"));
  call.setArguments({space, key});
  auto* const watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, space, key] {
    const QDBusPendingReply<QDBusVariant> reply = *watcher;
    if (reply.isValid()) apply(space, key, QVariant::fromValue(reply.value()));
    watcher->deleteLater();
  });
}

void Appearance::settingChanged(const QDBusMessage& signal) {
  const QVariantList words = signal.arguments();
  if (words.size() == 3) apply(words[0].toString(), words[1].toString(), words[2]);
}

void Appearance::apply(const QString& space, const QString& key, const QVariant& wrapped) {
  const QVariant value = unwrapped(wrapped);
  if (space == kLook && key == kScheme) {
    // 0 is "no preference": what the palette says stands.
    if (value.toUInt() != 0) setDark(value.toUInt() == 1);
  } else if (space == kGnome && key == kAnimations) {
    setReducedMotion(!value.toBool());
  } else if (space == kKde && key == kAnimationLength) {
    setReducedMotion(value.toDouble() <= 0);
  }
}

}  // namespace ostrel
