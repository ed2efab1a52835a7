// The program's two pops, synthesised: no sound file is installed. Main thread only; `wave` is pure.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "Platform/SoundPlayer.h"
#include "Runtime/MainLoop.h"

namespace ostrel {

class AgentSounds {
 public:
  enum class Kind { finished, needsYou };
  // Several agents at once give one pop: another within this time of the last one is dropped.
  static constexpr Duration kQuiet = std::chrono::milliseconds(1500);

  // `seed` makes the noise in the sounds, a little different at each launch.
  AgentSounds(MainLoop& loop, SoundPlayer& player, std::uint32_t seed)
      : loop_(loop), player_(player), seed_(seed) {}

  // `force` plays it in any case: a preview.
  void play(Kind kind, bool force);

  // A RIFF WAVE file: PCM, one channel, 44,100 samples of 16 bits a second. A third of a second long.
  static std::string wave(Kind kind, std::uint32_t seed);

 private:
  MainLoop& loop_;
  SoundPlayer& player_;
  std::uint32_t seed_;
  std::map<Kind, std::string> cache_;
  std::optional<TimePoint> lastPlayed_;
};

}  // namespace ostrel
