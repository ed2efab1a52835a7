// The program's icon in the desktop's status area, and the menu that it shares with the edge. Main thread
// only.
#pragma once

#include <QMenu>
#include <QSystemTrayIcon>
#include <functional>

namespace ostrel {

class StatusItem final : public QObject {
  Q_OBJECT

 public:
  struct Actions {
    std::function<void()> showAgents;
    std::function<void()> clicked;
    std::function<void()> showConnections;
    std::function<void()> toggleVisibility;
    std::function<void()> hideForTwoHours;
    std::function<void()> quit;
    std::function<bool()> visible;  // the edge is on
    std::function<void()> opened;   // a menu is open
    std::function<void()> closed;
  };
  explicit StatusItem(Actions actions);

  // False where the desktop has no status area; the icon then comes when one does.
  bool show();
  // How many agents need the person, for the badge, and all of them in a line, for the tooltip.
  void tell(int needing, const QString& summary);
  // The edge's menu, at the pointer.
  void openMenu();

 private:
  void fill();

  Actions actions_;
  QMenu menu_;
  QAction* visibility_ = nullptr;
  int needing_ = 0;
  QSystemTrayIcon icon_;
};

}  // namespace ostrel
