#include "UtilityPanels.h"

#include <QApplication>
#include <algorithm>

#include "RestingMemory.h"

namespace ostrel {

UtilityPanels::UtilityPanels(MainLoop& loop, QQmlEngine& engine, Appearance& appearance, bool inert)
    : loop_(loop), engine_(engine), appearance_(appearance), inert_(inert) {
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
  restTimer_.reset();
  backTimer_.reset();
  for (const auto& panel : panels_) {
    panel->hide();
    panel->setSource({});
  }
}

void UtilityPanels::scaleChanged() {
  for (const auto& panel : panels_) panel->scaleChanged();
}

void UtilityPanels::show(EdgeWindow window, bool key) {
  backTimer_.reset();
  (*this)[window].present(key && !inert_);
  awaitRest();
}

void UtilityPanels::hide(EdgeWindow window) {
  UtilityPanel& panel = (*this)[EdgeWindow::panel];
  const bool goesBack = window == EdgeWindow::agent && isKey(window) && panel.isVisible();
  (*this)[window].hide();
  backTimer_.reset();
  if (goesBack) {
    panel.present(true);
    // KWin and xfwm4 look for a window of their own choice when one goes, whatever was asked for meanwhile.
    backTimer_ = loop_.after(kManagersChoice, [this] {
      UtilityPanel& again = (*this)[EdgeWindow::panel];
      if (again.isVisible() && !again.isActive()) again.present(true);
    });
  }
  awaitRest();
}

void UtilityPanels::awaitRest() {
  restTimer_.reset();
  const bool busy = std::ranges::any_of(panels_, [this](const auto& panel) {
    return panel->isVisible() && panel != panels_[static_cast<std::size_t>(EdgeWindow::notch)];
  });
  if (!busy) restTimer_ = loop_.after(kRest, [this] { rest(); });
}

void UtilityPanels::rest() {
  for (const auto& panel : panels_) panel->rest();
  engine_.collectGarbage();
  engine_.trimComponentCache();
  memory::giveBack();
}

bool UtilityPanels::hasDialog() const { return QApplication::activeModalWidget() != nullptr; }

}  // namespace ostrel
