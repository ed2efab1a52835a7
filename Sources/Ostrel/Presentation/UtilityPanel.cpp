#include "UtilityPanel.h"

#include <QEasingCurve>
#include <QPainterPath>
#include <QQmlError>
#include <QQuickItem>
#include <QRegion>
#include <chrono>

#include "Runtime/Failure.h"
#include "X11Windows.h"

namespace ostrel {

namespace {

QEasingCurve curve() {
  const auto& c = WindowMotion::curve;
  QEasingCurve result(QEasingCurve::BezierSpline);
  result.addCubicBezierSegment({c[0], c[1]}, {c[2], c[3]}, {1, 1});
  return result;
}

// Where the keyboard follows the pointer these two keep a window that refuses it from getting it, and give it
// again when it no longer refuses. Others lose their way then.
bool managerHeedsRefusal() {
  const QByteArray manager = x11::windowManager().toLower();
  return manager.startsWith("openbox") || manager.startsWith("xfwm4");
}

}  // namespace

QUrl viewUrl(const QString& component) {
  return QUrl(QStringLiteral("qrc:/qt/qml/Ostrel/%1.qml").arg(component));
}

void loadView(QQuickView& window, const QString& component, QObject& bridge) {
  window.setResizeMode(QQuickView::SizeRootObjectToView);
  window.setInitialProperties({{QStringLiteral("bridge"), QVariant::fromValue(&bridge)}});
  window.setSource(viewUrl(component));
  if (window.rootObject()) return;
  const auto found = window.errors();
  throw Failure("the view could not be made: " +
                (found.isEmpty() ? component : found.first().toString()).toStdString());
}

UtilityPanel::UtilityPanel(QQmlEngine& engine, Appearance& appearance, const QString& name)
    : QQuickView(&engine, nullptr), appearance_(appearance) {
  setObjectName(name);
  setTitle(QStringLiteral("Ostrel"));
  setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
  setColor(Qt::transparent);
  motion_.setEasingCurve(curve());
  connect(&motion_, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
    const QPointF at = value.toPointF();
    setProgress(at.x(), at.y());
  });
  connect(this, &QWindow::activeChanged, this, [this] {
    if (!isActive()) engaged_ = false;
    Q_EMIT keyChanged();
  });
  connect(&appearance, &Appearance::changed, this, &UtilityPanel::reshape);
}

void UtilityPanel::setView(const QString& component, QObject& bridge) {
  component_ = component;
  bridge_ = &bridge;
}

void UtilityPanel::makeView() {
  if (rootObject() || !bridge_) return;
  try {
    loadView(*this, component_, *bridge_);
    connect(rootObject(), SIGNAL(surfaceChanged()), this, SLOT(reshape()));
  } catch (const Failure& failure) {
    qCritical("%s", failure.message().c_str());
  }
}

void UtilityPanel::rest() {
  if (isVisible()) return;
  motion_.stop();
  setSource({});
  destroy();
}

void UtilityPanel::place(const Rect& frame) {
  setGeometry(frame.x, frame.y, frame.width, frame.height);
  reshape();
}

void UtilityPanel::present(bool key) {
  appearance_.setComposited(x11::composited());
  engaged_ = key || (isVisible() && engaged_);
  if (!isVisible()) {
    setProperty("_q_showWithoutActivating", !key);
    setFlag(Qt::WindowDoesNotAcceptFocus, !key && managerHeedsRefusal());
    makeView();
    create();
    x11::prepare(*this);
    reshape();
    show();
    x11::announce(*this);
  } else if (key) {
    setFlag(Qt::WindowDoesNotAcceptFocus, false);
  }
  raise();
  if (key) requestActivate();
  x11::flush();
}

void UtilityPanel::animate(const WindowMotion& motion) {
  const bool moving = motion_.state() == QAbstractAnimation::Running;
  const double from = moving ? opacity_ : motion.from;
  motion_.stop();
  // Without transparency a fading is a flicker: the view is there until its window goes.
  if (motion.duration <= Duration::zero() || !appearance_.composited()) {
    setProgress(1, 0);
    return;
  }
  setProgress(from, motion.slide);
  motion_.setStartValue(QPointF(from, motion.slide));
  motion_.setEndValue(QPointF(motion.to, 0));
  motion_.setDuration(
      static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(motion.duration).count()));
  motion_.start();
}

void UtilityPanel::setProgress(double opacity, double slide) {
  opacity_ = opacity;
  if (!rootObject()) return;
  rootObject()->setOpacity(opacity);
  rootObject()->setX(slide);
}

void UtilityPanel::takeClicks(bool takes) {
  takesClicks_ = takes;
  reshape();
}

bool UtilityPanel::event(QEvent* event) {
  if (event->type() == QEvent::MouseButtonPress || event->type() == QEvent::TouchBegin ||
      event->type() == QEvent::KeyPress) {
    engage();
  }
  if (event->type() == QEvent::Enter || event->type() == QEvent::Leave) {
    hasPointer_ = event->type() == QEvent::Enter;
    Q_EMIT pointerCrossed();
  }
  if (event->type() == QEvent::Close) {
    event->ignore();
    Q_EMIT closeAsked();
    return true;
  }
  return QQuickView::event(event);
}

void UtilityPanel::engage() {
  if (engaged_) return;
  engaged_ = true;
  if (isActive()) {
    Q_EMIT keyChanged();
    return;
  }
  setFlag(Qt::WindowDoesNotAcceptFocus, false);
  requestActivate();
  x11::flush();
}

// Shapes are in pixels. Qt takes a turn to follow, and draws anew only what is of another size afterwards.
void UtilityPanel::scaleChanged() {
  if (!isVisible()) return;
  const QSize size = this->size();
  resize(size.width() + 1, size.height());
  resize(size);
  reshape();
}

QRect UtilityPanel::surface() const {
  return rootObject() ? rootObject()->property("surface").toRectF().toAlignedRect() : QRect();
}

// xfwm4 gives a window a frame when it is shown, and heeds no shape that was set before.
void UtilityPanel::exposeEvent(QExposeEvent* event) {
  QQuickView::exposeEvent(event);
  if (isExposed()) shapeInput();
}

void UtilityPanel::shapeInput() {
  x11::setInput(*this, takesClicks_ ? std::vector{surface()} : std::vector<QRect>{});
}

void UtilityPanel::reshape() {
  if (!handle()) return;
  const QRect covered = surface();
  shapeInput();
  if (appearance_.composited() || !rootObject()) {
    setColor(Qt::transparent);
    setMask({});
  } else {
    // What shows between the view's smooth edge and the cut is of the view's colour.
    setColor(rootObject()->property("surfaceColor").value<QColor>());
    const double radius = rootObject()->property("surfaceRadius").toDouble();
    QPainterPath outline;
    outline.addRoundedRect(covered, radius, radius);
    setMask(QRegion(outline.toFillPolygon().toPolygon()));
  }
  x11::flush();
}

}  // namespace ostrel
