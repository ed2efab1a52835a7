// Qt's application without a display: one for the whole test program. Qt fails where a second one is
// made after windows were drawn.
#pragma once

#include <QApplication>
#include <QQuickWindow>

namespace ostrel {

inline QApplication& offscreen() {
  static QApplication* const application = [] {
    static int count = 1;
    static char name[] = "test";
    static char* arguments[] = {name, nullptr};
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    return new QApplication(count, arguments);  // stays: it ends with the program
  }();
  return *application;
}

}  // namespace ostrel
