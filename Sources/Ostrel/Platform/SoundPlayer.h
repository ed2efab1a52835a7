// Plays short sounds, as a port. Main thread only.
#pragma once

#include <string>

namespace ostrel {

class SoundPlayer {
 public:
  SoundPlayer() = default;
  SoundPlayer(const SoundPlayer&) = delete;
  SoundPlayer& operator=(const SoundPlayer&) = delete;
  virtual ~SoundPlayer() = default;

  // Plays a RIFF WAVE file held in memory, in place of the one that plays. Returns at once; without a sound
  // server nothing is heard.
  virtual void play(const std::string& wave) = 0;
};

}  // namespace ostrel
