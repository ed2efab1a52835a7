// Banners against a notification service of the test's own, on a bus of its own.
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include <gtest/gtest.h>

#include "DesktopNotifications.h"
#include "Offscreen.h"

namespace ostrel {
namespace {

// Shows what it is told to, slowly: it answers when the test lets it.
class Service final : public QObject, protected QDBusContext {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

 public:
  QStringList capabilities;
  QStringList shown;  // "replaced id|title|body"
  QList<QDBusMessage> waiting;

 public Q_SLOTS:
  QStringList GetCapabilities() { return capabilities; }
  uint Notify(const QString&, uint replaces, const QString&, const QString& title, const QString& body,
              const QStringList&, const QVariantMap&, int) {
    shown.append(QStringLiteral("%1|%2|%3").arg(replaces).arg(title, body));
    setDelayedReply(true);
    waiting.append(message());
    return 0;
  }
};

class DesktopNotificationsTest : public testing::Test {
 protected:
  static void until(const std::function<bool()>& done) {
    QTimer limit;
    limit.setSingleShot(true);
    limit.start(20'000);
    while (!done() && limit.isActive()) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    ASSERT_TRUE(done());
  }
};

TEST_F(DesktopNotificationsTest, AQuickSecondBannerReplacesTheFirstAndBodiesAreNoMarkup) {
  offscreen();
  QProcess bus;
  bus.start(QStringLiteral("dbus-daemon"),
            {QStringLiteral("--session"), QStringLiteral("--nofork"), QStringLiteral("--print-address=1")});
  if (!bus.waitForStarted()) GTEST_SKIP() << "there is no dbus-daemon";
  ASSERT_TRUE(bus.waitForReadyRead(20'000));
  const QByteArray address = bus.readLine().trimmed();
  qputenv("DBUS_SESSION_BUS_ADDRESS", address);

  Service service;
  QDBusConnection other =
      QDBusConnection::connectToBus(QString::fromUtf8(address), QStringLiteral("service"));
  ASSERT_TRUE(other.registerService(QStringLiteral("org.freedesktop.Notifications")));
  ASSERT_TRUE(other.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &service,
                                   QDBusConnection::ExportAllSlots));
  const auto answer = [&](uint id) { other.send(service.waiting.takeFirst().createReply(id)); };
  {
    DesktopNotifications banners([](std::string_view line) { ADD_FAILURE() << line; });
    banners.post({.agent = "a", .title = "one <b>", .body = "<img src='x'> & more"});
    until([&] { return service.shown.size() == 1; });
    EXPECT_EQ(service.shown[0], QStringLiteral("0|one <b>|&lt;img src='x'&gt; &amp; more"));
    // Two more before the service has said which number the first has: the last of them counts.
    banners.post({.agent = "a", .title = "two", .body = ""});
    banners.post({.agent = "a", .title = "three", .body = ""});
    banners.post({.agent = "b", .title = "other", .body = ""});
    until([&] { return service.shown.size() == 2; });
    EXPECT_EQ(service.shown[1], QStringLiteral("0|other|")) << "another agent does not wait";
    answer(41);
    until([&] { return service.shown.size() == 3; });
    EXPECT_EQ(service.shown[2], QStringLiteral("41|three|"));
    answer(42);
    answer(41);

    service.capabilities = {QStringLiteral("body")};
    banners.requestPermission();
    until([&] {
      banners.post({.agent = "c", .title = "t", .body = "a & b"});
      QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
      while (!service.waiting.isEmpty()) answer(50);
      return service.shown.last().endsWith(QStringLiteral("a & b"));
    });
  }
  QDBusConnection::disconnectFromBus(QStringLiteral("service"));
  bus.terminate();
  bus.waitForFinished();
}

}  // namespace
}  // namespace ostrel

#include "DesktopNotificationsTests.moc"
