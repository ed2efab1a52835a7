// Plays sounds by the desktop's sound server: through its smallest client library, which is looked for at run
// time, else by a player program. Main thread only.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Discovery/CommandLineTools.h"
#include "Platform/SoundPlayer.h"
#include "Runtime/MainLoop.h"

namespace ostrel {

class DesktopSounds final : public SoundPlayer {
 public:
  struct Ports {
    MainLoop& loop;
    const CommandLineTools& tools;                   // copied
    std::function<void(std::string_view)> complain;  // one line, once, where nothing can be heard
  };
  explicit DesktopSounds(Ports ports);
  // A sound that is being played breaks off. A server that does not answer is not waited for.
  ~DesktopSounds() override;

  void play(const std::string& wave) override;

 private:
  // What the playing thread shares with us. It is left to itself: no call of the sound server's library ends
  // before the server answers.
  struct Shared;
  static void run(const std::shared_ptr<Shared>& shared);

  std::shared_ptr<Shared> shared_;
};

}  // namespace ostrel
