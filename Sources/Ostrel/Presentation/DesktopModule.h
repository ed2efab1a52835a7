// The border between the resident program and its windows: the one header here that knows nothing of Qt.
//
// The windows are a library that the program loads at run time where there is a display; a run without one
// never pays for Qt. The library uses the core inside the program. Main thread only.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string_view>

#include "Client/HerdrClient.h"
#include "Discovery/CommandLineTools.h"
#include "Platform/Environment.h"
#include "Platform/Openers.h"
#include "Platform/Preferences.h"
#include "Platform/Processes.h"
#include "Runtime/Background.h"
#include "Runtime/EpollLoop.h"

namespace ostrel {

// What the windows need of the program. All of it outlives them.
struct DesktopParts {
  EpollLoop& loop;
  Background& pool;
  Background& toolPool;  // for tools, which may hang
  HerdrClient& client;
  Preferences& preferences;
  const CommandLineTools& tools;
  Processes& processes;
  const Environment& environment;
  UrlOpener& urls;
  TerminalOpener& terminals;
  bool fixture = false;                            // windows are there, but take no clicks
  bool installed = false;                          // has a bundle identifier, and may post banners
  std::function<void(std::string_view)> complain;  // one line about something that is missing
};

class Desktop {
 public:
  Desktop() = default;
  Desktop(const Desktop&) = delete;
  Desktop& operator=(const Desktop&) = delete;
  virtual ~Desktop() = default;

  // The windows, the status item, alerts and shortcuts; nothing is on the screen yet. Throws `Failure` when a
  // view can't be made.
  virtual void makeWindows() = 0;
  // The handle comes to the edge.
  virtual void showWindows() = 0;
  // Brings the panel forward, with the keyboard: the person has started the program again.
  virtual void showPanel() = 0;
  // Serves the program's loop inside the desktop's own until `stop`.
  virtual void run() = 0;
  virtual void stop() = 0;
};

struct DesktopModule {
  // Throws `Failure` when the display can't be reached.
  std::unique_ptr<Desktop> (*open)(const DesktopParts& parts);
  // Renders every view into PNG files, without a display. Throws `Failure`.
  void (*snapshot)(const std::filesystem::path& folder, MainLoop& loop, Preferences& preferences);
};

// The name and type of the function that the library exports.
inline constexpr char kDesktopModule[] = "ostrelDesktopModule";
using DesktopModuleFunction = const DesktopModule*();

}  // namespace ostrel
