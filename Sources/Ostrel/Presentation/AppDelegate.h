// The windows' side of the program: makes the model's views and the desktop's services, and brings them
// together. Decides nothing. Main thread only.
#pragma once

#include <QApplication>
#include <QQmlEngine>
#include <memory>
#include <optional>
#include <vector>

#include "App/AgentAlerts.h"
#include "App/AgentSounds.h"
#include "App/DoubleOptionShortcut.h"
#include "App/EdgeState.h"
#include "App/OstrelModel.h"
#include "App/ProviderConnections.h"
#include "App/TerminalLauncher.h"
#include "Appearance.h"
#include "ConversationBridge.h"
#include "DesktopModule.h"
#include "DesktopNotifications.h"
#include "DesktopScreens.h"
#include "DesktopSounds.h"
#include "EdgeBridges.h"
#include "NestedLoop.h"
#include "PanelPages.h"
#include "SampleConversation.h"
#include "StatusItem.h"
#include "UtilityPanels.h"
#include "X11Input.h"

namespace ostrel {

// Qt itself, with what must be settled before it starts.
class DesktopApplication {
 public:
  // Throws `Failure` when the display can't be reached.
  explicit DesktopApplication(const Environment& environment);
  bool wayland() const { return wayland_; }

 private:
  char name_[7] = "Ostrel";
  char* arguments_[2] = {name_, nullptr};
  int count_ = 1;
  bool wayland_ = false;
  std::optional<QApplication> application_;
};

// Everything that `--preview-agents` shows.
struct Samples {
  explicit Samples(Preferences& preferences) : conversation(agents, requests, preferences) {}
  SampleAgents agents;
  SampleRequests requests;
  SampleConversation conversation;
};

class AppDelegate final : public Desktop {
 public:
  static std::unique_ptr<Desktop> open(const DesktopParts& parts);
  explicit AppDelegate(DesktopParts parts);
  ~AppDelegate() override;

  void makeWindows() override;
  void showWindows() override;
  void showPanel() override { edge_.presentPanel(); }
  void run() override;
  void stop() override;

 private:
  void tellStatus();
  void loadViews();
  void followDesktop();
  void followClicks();
  void followActivation();
  BridgeParts bridgeParts();
  ConversationParts conversationParts();
  Task<std::function<void()>> findTerminal(HerdrAgent agent);
  AgentActions& actions();
  RequestSource& requests();
  void open(const HerdrAgent& agent, bool markSeen);
  void closeConversation();
  Point pointer() const;

  // Order matters: what uses another stands after it.
  DesktopParts parts_;
  DesktopApplication application_;
  NestedLoop loop_;
  std::unique_ptr<Samples> samples_;  // in the place of the client's agents
  OstrelModel model_;
  InterfaceState shown_;
  TerminalLauncher terminal_;
  ProviderConnections providers_;
  Connections connections_;
  QQmlEngine engine_;
  Appearance appearance_{engine_};
  UtilityPanels panels_;
  DesktopScreens screens_;
  X11Input input_;
  EdgeState edge_;
  DesktopNotifications notifications_;
  DesktopSounds player_;
  AgentSounds sounds_;
  AgentAlerts alerts_;
  DoubleOptionShortcut shortcut_;
  StatusItem status_;
  NotchBridge notch_;
  RailBridge rail_;
  PanelBridge panel_;
  ConversationBridge conversation_;
  Registration clicks_;
  Subscription panelVisible_;
  Subscription problems_;
};

}  // namespace ostrel
