#include "Conversations/LineScan.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace ostrel {

namespace {

constexpr std::size_t npos = std::string_view::npos;

// Markers are searched by two of their bytes that are rare together in transcripts, as counted. For both
// markers they are equally far apart, so that one look at the data serves both.
constexpr std::size_t kDistance = 6;
struct Marker {
  std::string_view text;
  std::size_t probe;  // offset of the first of the two bytes
};
constexpr Marker kTitle{kTitleMarker, 0};    // a minus and the quote
constexpr Marker kPrompt{kPromptMarker, 2};  // the y of "type" and the u of "user"

// Places that are looked at together. The loops over them have no branches, so that the compiler makes vector
// code of them: for SSE2 by default, and for AVX2 in functions with that target, for whose sake all is
// inlined.
constexpr std::size_t kStep = 128;

// Whether the two bytes of one of the markers stand here.
template <const Marker&... markers>
[[gnu::always_inline]] inline std::uint8_t probed(const char* at) {
  constexpr auto fits = [](const char* place, char one, char two) {
    return (place[0] == one) & (place[kDistance] == two);
  };
  return static_cast<std::uint8_t>(
      (... | fits(at, markers.text[markers.probe], markers.text[markers.probe + kDistance])));
}

template <const Marker&... markers>
[[gnu::always_inline]] inline bool anyProbed(const char* at) {
  std::uint8_t any = 0;
  for (std::size_t i = 0; i < kStep; ++i) any = static_cast<std::uint8_t>(any | probed<markers...>(at + i));
  return any != 0;
}

// The places of a step or less that are worth a closer look, a byte each.
template <const Marker&... markers>
[[gnu::always_inline]] inline void probeAll(const char* at, std::size_t count, std::uint8_t* flags) {
  if (count == kStep) {
    for (std::size_t i = 0; i < kStep; ++i) flags[i] = probed<markers...>(at + i);
  } else {
    for (std::size_t i = 0; i < count; ++i) flags[i] = probed<markers...>(at + i);
  }
}

// The number of places where both bytes fit into the data.
std::size_t places(std::string_view data) { return std::max(data.size(), kDistance) - kDistance; }

// Where the marker begins whose first probed byte stands at `at`; npos for other markers.
template <const Marker& marker>
std::size_t startOf(std::string_view data, std::size_t at) {
  const bool stands = at >= marker.probe && data.substr(at - marker.probe).starts_with(marker.text);
  return stands ? at - marker.probe : npos;
}

template <const Marker&... markers>
[[gnu::always_inline]] inline std::size_t last(std::string_view data) {
  std::size_t to = places(data);
  for (;;) {
    while (to >= kStep && !anyProbed<markers...>(data.data() + to - kStep)) to -= kStep;
    if (to == 0) return npos;
    const std::size_t from = to - std::min(to, kStep);
    std::uint8_t flags[kStep];
    probeAll<markers...>(data.data() + from, to - from, flags);
    while (const void* flag = ::memrchr(flags, 1, to - from)) {
      to = from + static_cast<std::size_t>(static_cast<const std::uint8_t*>(flag) - flags);
      if (const std::size_t start = std::min({startOf<markers>(data, to)...}); start != npos) return start;
    }
    to = from;
  }
}

template <const Marker& marker>
[[gnu::always_inline]] inline std::size_t first(std::string_view data) {
  const std::size_t end = places(data);
  for (std::size_t from = 0;;) {
    while (from + kStep <= end && !anyProbed<marker>(data.data() + from)) from += kStep;
    if (from == end) return npos;
    const std::size_t count = std::min(end - from, kStep);
    std::uint8_t flags[kStep];
    probeAll<marker>(data.data() + from, count, flags);
    for (std::size_t i = 0; i < count; ++i) {
      const void* const flag = std::memchr(flags + i, 1, count - i);
      if (!flag) break;
      i = static_cast<std::size_t>(static_cast<const std::uint8_t*>(flag) - flags);
      if (const std::size_t start = startOf<marker>(data, from + i); start != npos) return start;
    }
    from += count;
  }
}

#if defined(__x86_64__)
const bool wide = __builtin_cpu_supports("avx2");
#define OSTREL_WIDE [[gnu::target("avx2")]]
#else
constexpr bool wide = false;
#define OSTREL_WIDE
#endif

OSTREL_WIDE std::size_t firstTitleWide(std::string_view data) { return first<kTitle>(data); }
OSTREL_WIDE std::size_t firstPromptWide(std::string_view data) { return first<kPrompt>(data); }
OSTREL_WIDE std::size_t lastTitleWide(std::string_view data) { return last<kTitle>(data); }
OSTREL_WIDE std::size_t lastEitherWide(std::string_view data) { return last<kTitle, kPrompt>(data); }

#undef OSTREL_WIDE

}  // namespace

std::size_t findTitleMarker(std::string_view data) {
  return wide ? firstTitleWide(data) : first<kTitle>(data);
}

std::size_t findPromptMarker(std::string_view data) {
  return wide ? firstPromptWide(data) : first<kPrompt>(data);
}

std::size_t findLastTitleMarker(std::string_view data) {
  return wide ? lastTitleWide(data) : last<kTitle>(data);
}

std::size_t findLastMarker(std::string_view data) {
  return wide ? lastEitherWide(data) : last<kTitle, kPrompt>(data);
}

}  // namespace ostrel
