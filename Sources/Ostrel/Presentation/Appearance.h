// How the person wants the desktop to look: dark or light, with motion or without; and whether windows may be
// transparent. Follows the desktop's settings while the program runs. Main thread only.
#pragma once

#include <QDBusMessage>
#include <QObject>
#include <QQmlEngine>
#include <QtQmlIntegration>

namespace ostrel {

class Appearance final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_SINGLETON
  Q_PROPERTY(bool dark READ dark NOTIFY changed)
  Q_PROPERTY(bool reducedMotion READ reducedMotion NOTIFY changed)
  Q_PROPERTY(bool composited READ composited NOTIFY changed)

 public:
  // Light, with motion and without transparency, until something else is set or known. Of the views of
  // `engine` this is the one; both live equally long.
  explicit Appearance(QQmlEngine& engine);
  // How the engine finds it.
  static Appearance* create(QQmlEngine* engine, QJSEngine* scripts);

  // Asks the desktop's settings portal, and the palette where there is none.
  void followDesktop();

  bool dark() const { return dark_; }
  bool reducedMotion() const { return reducedMotion_; }
  bool composited() const { return composited_; }
  void setDark(bool dark) { change(dark_, dark); }
  void setReducedMotion(bool reduced) { change(reducedMotion_, reduced); }
  void setComposited(bool composited) { change(composited_, composited); }

 Q_SIGNALS:
  void changed();

 private Q_SLOTS:
  void settingChanged(const QDBusMessage& signal);

 private:
  void apply(const QString& space, const QString& key, const QVariant& wrapped);
  void ask(const QString& space, const QString& key);
  void change(bool& field, bool value) {
    if (std::exchange(field, value) != value) Q_EMIT changed();
  }

  bool dark_ = false;
  bool reducedMotion_ = false;
  bool composited_ = false;
};

}  // namespace ostrel
