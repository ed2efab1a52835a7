#include "App/AgentSounds.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <utility>

namespace ostrel {

namespace {

constexpr double kRate = 44100;  // samples a second

struct Pop {
  double start;  // Hz
  double end;    // Hz
  double decay;  // seconds
};

// The second is the first, a third of an octave lower and a little longer.
constexpr Pop kFinished = {200, 640, 0.042};
constexpr Pop kNeedsYou = {158.74010519681997, 507.96833662982385, 0.046};

// Rises evenly for `attack` seconds, then decays.
double envelope(double t, double attack, double decay) {
  return t < attack ? t / attack : std::exp(-(t - attack) / decay);
}

void append(std::string& bytes, std::uint32_t value, int count) {
  for (int i = 0; i < count; ++i) bytes += static_cast<char>(value >> (8 * i) & 0xFF);
}

std::string header(std::uint32_t dataSize) {
  std::string bytes = "RIFF";
  append(bytes, 36 + dataSize, 4);
  bytes += "WAVEfmt ";
  append(bytes, 16, 4);
  append(bytes, 1, 2);  // PCM
  append(bytes, 1, 2);  // channels
  append(bytes, 44100, 4);
  append(bytes, 88200, 4);  // bytes a second
  append(bytes, 2, 2);      // bytes a sample
  append(bytes, 16, 2);     // bits
  bytes += "data";
  append(bytes, dataSize, 4);
  return bytes;
}

}  // namespace

void AgentSounds::play(Kind kind, bool force) {
  const TimePoint now = loop_.now();
  if (!force && lastPlayed_ && now - *lastPlayed_ <= kQuiet) return;
  lastPlayed_ = now;
  std::string& sound = cache_[kind];
  if (sound.empty()) sound = wave(kind, seed_ + static_cast<std::uint32_t>(kind));
  player_.play(sound);
}

std::string AgentSounds::wave(Kind kind, std::uint32_t seed) {
  const Pop& pop = kind == Kind::finished ? kFinished : kNeedsYou;
  const auto count = static_cast<std::uint32_t>((7 * pop.decay + 0.02) * kRate);
  std::string bytes = header(2 * count);
  std::minstd_rand random(seed);
  std::uniform_real_distribution<double> uniform(-1, 1);

  double phase = 0;
  double x1 = 0, x2 = 0, y1 = 0, y2 = 0;  // the band-pass filter's past
  double high = 0, previous = 0;          // the high-pass filter's
  for (std::uint32_t i = 0; i < count; ++i) {
    const double t = i / kRate;
    // The body: a sine that sweeps upwards.
    const double frequency = pop.start * std::pow(pop.end / pop.start, std::min(t, 0.022) / 0.022);
    phase += 2 * std::numbers::pi * frequency / kRate;
    double sample = std::sin(phase) * envelope(t, 0.0015, pop.decay);

    // Breath round it: noise through a narrow band (Q 7) that follows the sweep.
    const double noise = uniform(random);
    const double angle = 2 * std::numbers::pi * std::min(frequency, 19845.0) / kRate;
    const double a = std::sin(angle) / 14;
    const double band = (2 * std::cos(angle) * y1 + a * noise - a * x2 - (1 - a) * y2) / (1 + a);
    x2 = std::exchange(x1, noise);
    y2 = std::exchange(y1, band);
    sample += band * envelope(t, 0.001, 0.7 * pop.decay) * 1.2;

    // A click at the beginning.
    if (t < 0.02) {
      high = (high + noise - previous) * 0.737360003423376;
      previous = noise;
      sample += high * 0.105 * std::exp(t / -0.0012);
    }
    const double loud = std::clamp(sample * 0.65 * 0.8, -1.0, 1.0);
    append(bytes, static_cast<std::uint32_t>(static_cast<std::int32_t>(loud * 32767)), 2);
  }
  return bytes;
}

}  // namespace ostrel
