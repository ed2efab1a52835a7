// The start of a test whose course is made up at random: another one in each run, and the same again on
// demand.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <random>

namespace ostrel {

// The number in OSTREL_SEED, or a new one. Said at once and not with the failure: a crash or a test that
// hangs must tell it too.
inline unsigned randomSeed() {
  const char* const given = std::getenv("OSTREL_SEED");
  const unsigned seed =
      given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device{}();
  std::printf("[ SEED     ] OSTREL_SEED=%u takes the same course\n", seed);
  std::fflush(stdout);
  return seed;
}

}  // namespace ostrel
