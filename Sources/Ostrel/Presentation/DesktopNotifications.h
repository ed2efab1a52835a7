// Banners by the desktop's notification service, over D-Bus. Main thread only.
#pragma once

#include <QHash>
#include <QObject>
#include <functional>
#include <optional>
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
  // The service shows what the person lets it show: this only finds out whether there is one, and whether it
  // reads markup.
  void requestPermission() override;

 private Q_SLOTS:
  void invoked(uint id, const QString& action);
  void closed(uint id, uint reason);

 private:
  void complainOnce();
  void send(const Banner& banner);
  void sent(const QString& agent);

  std::function<void(std::string_view)> complain_;
  Clicked clicked_;
  QHash<QString, uint> ids_;  // by agent, what is shown
  // By agent, what waits until the service has told the number of the banner before, which it is to replace.
  QHash<QString, std::optional<Banner>> waiting_;
  bool markup_ = true;  // the service reads bodies as markup, unless it has said that it does not
};

}  // namespace ostrel
