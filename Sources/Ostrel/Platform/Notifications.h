// The desktop's notifications, as a port. Main thread only.
#pragma once

#include <functional>
#include <string>

namespace ostrel {

struct Banner {
  std::string agent;  // the agent's id: a later banner of the same agent replaces the earlier one
  std::string title;
  std::string body;
  bool operator==(const Banner&) const = default;
};

class Notifications {
 public:
  using Clicked = std::function<void(const std::string& agent)>;

  Notifications() = default;
  Notifications(const Notifications&) = delete;
  Notifications& operator=(const Notifications&) = delete;
  virtual ~Notifications() = default;

  // Shows the banner, also while the program is active. Without a notification service, or where the person
  // has refused, nothing happens.
  virtual void post(const Banner& banner) = 0;
  // Called on the main thread when a banner is clicked. Replaces the function of an earlier call.
  virtual void onClick(Clicked clicked) = 0;
  // Asks for leave to post, on desktops that want to be asked. A refusal is not reported.
  virtual void requestPermission() = 0;
};

}  // namespace ostrel
