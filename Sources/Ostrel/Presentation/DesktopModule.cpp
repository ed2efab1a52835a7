#include "DesktopModule.h"

#include <QLoggingCategory>
#include <cstdio>

#include "AppDelegate.h"
#include "Snapshots.h"

namespace {

// Faults of our views, and what keeps Qt from working. Its remarks about the desktop help nobody.
void message(QtMsgType type, const QMessageLogContext& context, const QString& text) {
  const QLatin1String category(context.category);
  const bool ours = category == QLatin1String("qml") || category == QLatin1String("js") ||
                    text.contains(QLatin1String("qrc:/qt/qml/Ostrel/"));
  if (ours || type == QtCriticalMsg || type == QtFatalMsg)
    std::fprintf(stderr, "Ostrel: %s\n", text.toUtf8().constData());
}

}  // namespace

extern "C" __attribute__((visibility("default"))) const ostrel::DesktopModule* ostrelDesktopModule() {
  static constexpr ostrel::DesktopModule module{ostrel::AppDelegate::open, ostrel::snapshots::render};
  qInstallMessageHandler(message);
  return &module;
}
