// Banners by the desktop's notification service, over D-Bus. Main thread only.
#pragma once

#include <QHash>
#include <QObject>
#include <functional>
#include <string>

#include "Platform/Notifications.h"

namespace ostrel {

class DesktopNotifications final : public QObject, public Notifications {
  Q_OBJECT

 public:
  // `complain` gets one line, once, where there is no service.
  explicit DesktopNotifications(std::function<void(std::string_view)> complain);

  void post(const Banner& banner) override;
  void onClick(Clicked clicked) override { clicked_ = std::move(clicked); }
  // The service shows what the person lets it show: this only finds out whether there is one.
  void requestPermission() override;

 private Q_SLOTS:
  void invoked(uint id, const QString& action);
  void closed(uint id, uint reason);

 private:
  void complainOnce();

  std::function<void(std::string_view)> complain_;
  Clicked clicked_;
  QHash<QString, uint> ids_;  // by agent, what is shown
};

}  // namespace ostrel
