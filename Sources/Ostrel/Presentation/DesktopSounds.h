// Plays sounds by the desktop's sound server: through its smallest client library, which is looked for at run
// time, else by a player program. Main thread only.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string_view>

#include "Discovery/CommandLineTools.h"
#include "Platform/SoundPlayer.h"
#include "Runtime/Background.h"
#include "Runtime/MainLoop.h"

namespace ostrel {

class DesktopSounds final : public SoundPlayer {
 public:
  struct Ports {
    MainLoop& loop;
    BackgroundPool& pool;  // plays; must outlive this
    const CommandLineTools& tools;
    std::function<void(std::string_view)> complain;  // one line, once, where nothing can be heard
  };
  explicit DesktopSounds(Ports ports);
  ~DesktopSounds() override;

  void play(const std::string& wave) override;

 private:
  struct Shared {
    std::atomic<unsigned> turn{0};                   // the sound that may be heard; others break off
    std::function<void(std::string_view)> complain;  // main thread only
  };
  Ports ports_;
  std::shared_ptr<Shared> shared_;
};

}  // namespace ostrel
