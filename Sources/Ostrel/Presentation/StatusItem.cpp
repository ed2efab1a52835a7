#include "StatusItem.h"

#include <QCursor>
#include <QIcon>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <utility>

namespace ostrel {

namespace {

// A disc in the corner with the number of those who need the person; from ten on a disc alone.
void drawBadge(QPainter& painter, int needing) {
  const QRectF disc(10, 9, 14, 14);
  painter.setPen(Qt::NoPen);
  painter.setBrush(QColor(0xef, 0x8f, 0x00));
  painter.drawEllipse(disc);
  if (needing > 9) return;
  QFont font = painter.font();
  font.setPixelSize(12);
  font.setBold(true);
  painter.setFont(font);
  painter.setPen(QColor(0x17, 0x1c, 0x25));
  painter.drawText(disc, Qt::AlignCenter, QString::number(needing));
}

// A stack of three sheets, seen from above.
QIcon stackIcon(int needing) {
  QIcon icon;
  for (const int size : {16, 22, 24, 32, 48, 64}) {
    QPixmap picture(size, size);
    picture.fill(Qt::transparent);
    QPainter painter(&picture);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(size / 24.0, size / 24.0);
    // Grey enough for a light and a dark panel alike.
    painter.setPen(QPen(QColor(0x9a, 0xa4, 0xb2), 2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    for (const double y : {16.0, 12.0}) {
      QPainterPath edge;
      edge.moveTo(3, y);
      edge.lineTo(12, y + 4.5);
      edge.lineTo(21, y);
      painter.drawPath(edge);
    }
    painter.setBrush(QColor(0x9a, 0xa4, 0xb2));
    painter.drawPolygon(QPolygonF({{12, 3.5}, {21, 8}, {12, 12.5}, {3, 8}}));
    if (needing > 0) drawBadge(painter, needing);
    painter.end();
    icon.addPixmap(picture);
  }
  return icon;
}

}  // namespace

StatusItem::StatusItem(Actions actions) : actions_(std::move(actions)), icon_(stackIcon(0)) {
  fill();
  icon_.setToolTip(QStringLiteral("Ostrel"));
  icon_.setContextMenu(&menu_);
  connect(&icon_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
    if (reason == QSystemTrayIcon::Trigger) actions_.clicked();
  });
}

void StatusItem::fill() {
  connect(menu_.addAction(QStringLiteral("Show Agents")), &QAction::triggered, this,
          [this] { actions_.showAgents(); });
  connect(menu_.addAction(QStringLiteral("Connections")), &QAction::triggered, this,
          [this] { actions_.showConnections(); });
  menu_.addSeparator();
  visibility_ = menu_.addAction(QStringLiteral("Hide Ostrel"));
  connect(visibility_, &QAction::triggered, this, [this] { actions_.toggleVisibility(); });
  QAction* const later = menu_.addAction(QStringLiteral("Hide for 2 hours"));
  connect(later, &QAction::triggered, this, [this] { actions_.hideForTwoHours(); });
  menu_.addSeparator();
  connect(menu_.addAction(QStringLiteral("Quit Ostrel")), &QAction::triggered, this,
          [this] { actions_.quit(); });
  connect(&menu_, &QMenu::aboutToShow, this, [this, later] {
    const bool visible = actions_.visible();
    visibility_->setText(visible ? QStringLiteral("Hide Ostrel") : QStringLiteral("Show Ostrel"));
    // Without a status area nothing could bring it back before its time.
    visibility_->setVisible(!visible || QSystemTrayIcon::isSystemTrayAvailable());
    later->setVisible(visible);
    actions_.opened();
  });
  connect(&menu_, &QMenu::aboutToHide, this, [this] { actions_.closed(); });
}

bool StatusItem::show() {
  icon_.show();
  return QSystemTrayIcon::isSystemTrayAvailable();
}

void StatusItem::tell(int needing, const QString& summary) {
  if (needing != std::exchange(needing_, needing)) icon_.setIcon(stackIcon(needing));
  if (icon_.toolTip() != summary) icon_.setToolTip(summary);
}

void StatusItem::openMenu() { menu_.popup(QCursor::pos()); }

}  // namespace ostrel
