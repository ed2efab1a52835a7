#include "UtilityPanels.h"

#include <QApplication>
#include <QScreen>
#include <algorithm>

namespace ostrel {

UtilityPanels::UtilityPanels(QQmlEngine& engine, Appearance& appearance, bool inert)
    : appearance_(appearance), inert_(inert) {
  constexpr const char* names[] = {"notch", "rail", "panel", "agent"};
  for (std::size_t i = 0; i < panels_.size(); ++i) {
    panels_[i] = std::make_unique<UtilityPanel>(engine, appearance, QLatin1String(names[i]));
    if (inert) panels_[i]->takeClicks(false);
    QObject::connect(panels_[i].get(), &UtilityPanel::keyChanged, panels_[i].get(), [this] {
      if (onKeyChange) onKeyChange();
    });
    QObject::connect(panels_[i].get(), &UtilityPanel::pointerCrossed, panels_[i].get(), [this] {
      if (onCrossing) onCrossing();
    });
    QObject::connect(panels_[i].get(), &UtilityPanel::closeAsked, panels_[i].get(), [this, i] {
      if (onCloseAsked) onCloseAsked(static_cast<EdgeWindow>(i));
    });
  }
}

bool UtilityPanels::hasPointer() const {
  return std::ranges::any_of(panels_,
                             [](const auto& panel) { return panel->isVisible() && panel->hasPointer(); });
}

void UtilityPanels::unload() {
  for (const auto& panel : panels_) {
    panel->hide();
    panel->setSource({});
  }
}

void UtilityPanels::hide(EdgeWindow window) {
  UtilityPanel& panel = (*this)[EdgeWindow::panel];
  const bool goesBack = window == EdgeWindow::agent && isKey(window) && panel.isVisible();
  (*this)[window].hide();
  if (goesBack) panel.present(true);
}

bool UtilityPanels::hasDialog() const { return QApplication::activeModalWidget() != nullptr; }

std::optional<Screen> DesktopScreens::main() const {
  const QScreen* const screen = QGuiApplication::primaryScreen();
  if (!screen || screen->geometry().isEmpty()) return std::nullopt;
  const auto plain = [](const QRect& rect) { return Rect{rect.x(), rect.y(), rect.width(), rect.height()}; };
  return Screen{plain(screen->geometry()), plain(screen->availableGeometry())};
}

}  // namespace ostrel
