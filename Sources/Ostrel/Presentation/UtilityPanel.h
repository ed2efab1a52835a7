// One window at the edge: without a border, above others, on every desktop, with a view in it. It takes the
// keyboard only when it is told to or clicked. Main thread only.
//
// The view says by the properties `surface`, `surfaceRadius` and `surfaceColor` what part of the window it
// covers: the rest lets clicks through, and is cut off on a desktop that shows no transparency.
#pragma once

#include <QQuickView>
#include <QVariantAnimation>

#include "Appearance.h"
#include "Platform/EdgeWindows.h"

namespace ostrel {

// Where the program's own QML component of that name is.
QUrl viewUrl(const QString& component);
// Fills the window with the QML component of that name, which requires the property `bridge`. Throws
// `Failure` when it can't be made.
void loadView(QQuickView& window, const QString& component, QObject& bridge);

class UtilityPanel final : public QQuickView {
  Q_OBJECT

 public:
  UtilityPanel(QQmlEngine& engine, Appearance& appearance, const QString& name);

  // What the window shows, as `loadView` takes it. The view is made when the window is first shown.
  void setView(const QString& component, QObject& bridge);
  // Gives back the view, and what it was drawn with, of a window that is hidden.
  void rest();

  void place(const Rect& frame);
  void present(bool key);
  void animate(const WindowMotion& motion);
  void takeClicks(bool takes);
  // A point of the screen has another number of pixels now.
  void scaleChanged();
  // It has the keyboard, and was given it: by a click, a key, or by being shown so. A window manager that
  // lets the keyboard follow the pointer does not count.
  bool isKey() const { return isActive() && engaged_; }
  bool hasPointer() const { return hasPointer_; }

 Q_SIGNALS:
  void keyChanged();
  void pointerCrossed();  // it has come, or left
  void closeAsked();      // by the window manager; the window stays until somebody hides it

 protected:
  bool event(QEvent* event) override;
  void exposeEvent(QExposeEvent* event) override;

 private Q_SLOTS:
  void reshape();

 private:
  void makeView();
  void engage();
  QRect surface() const;
  void shapeInput();
  void setProgress(double opacity, double slide);

  Appearance& appearance_;
  QString component_;
  QObject* bridge_ = nullptr;
  QVariantAnimation motion_;
  double opacity_ = 1;
  bool engaged_ = false;
  bool takesClicks_ = true;
  bool hasPointer_ = false;
};

}  // namespace ostrel
