// What the benchmarks of the windows share: how long a frame takes and what it costs, and the desktop's side
// of the edge without a person. A frame's cost is the main thread's processor time since the frame before; a
// dropped one took longer than the screen's interval. Main thread only.
#pragma once

#include <QEventLoop>
#include <QQuickWindow>
#include <QTimer>
#include <algorithm>
#include <chrono>
#include <ctime>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "App/OstrelSetting.h"
#include "Platform/Pointer.h"
#include "Platform/Preferences.h"

namespace ostrel::bench {

using Clock = std::chrono::steady_clock;

inline constexpr double kInterval = 1000.0 / 60;  // milliseconds

inline double milliseconds(Clock::duration time) {
  return std::chrono::duration<double, std::milli>(time).count();
}

// The settings as they are without a store.
class Defaults final : public Preferences {
 public:
  std::optional<Json> object(std::string_view key) const override {
    const auto found = OstrelSetting::defaults().find(std::string(key));
    return found == OstrelSetting::defaults().end() ? std::nullopt : std::optional(found->second);
  }
  void set(std::string_view, Json) override {}
  void remove(std::string_view) override {}
  void registerDefaults(const PreferenceMap&) override {}
};

class NoPointer final : public Pointer {
 public:
  Registration follow(Moved) override { return {}; }
};

struct Frames {
  std::vector<double> costs;  // milliseconds

  double at(double share) const {
    std::vector<double> sorted = costs;
    std::ranges::sort(sorted);
    return sorted.empty() ? 0
                          : sorted[static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1))];
  }
  long dropped() const {
    return std::ranges::count_if(costs, [](double cost) { return cost > kInterval; });
  }
};

// The main thread's processor time so far, in milliseconds: what other programs do meanwhile is not in it.
inline double processorTime() {
  timespec time{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

// The frames of `window` during `work`, which drives the loop itself.
inline Frames watch(QQuickWindow& window, const std::function<void()>& work) {
  Frames frames;
  double before = processorTime();
  const auto connection = QObject::connect(&window, &QQuickWindow::frameSwapped, &window, [&] {
    const double now = processorTime();
    frames.costs.push_back(now - std::exchange(before, now));
  });
  work();
  QObject::disconnect(connection);
  return frames;
}

inline void runFor(int time) {
  QEventLoop loop;
  QTimer::singleShot(time, &loop, &QEventLoop::quit);
  loop.exec();
}

// Until the next frame of the window; the time it took, in milliseconds.
inline double untilFrame(QQuickWindow& window, const std::function<void()>& action) {
  QEventLoop loop;
  const auto connection = QObject::connect(&window, &QQuickWindow::frameSwapped, &loop, &QEventLoop::quit);
  QTimer::singleShot(2000, &loop, [&] { loop.exit(1); });
  const auto begin = Clock::now();
  action();
  if (loop.exec() != 0) fmt::print("no frame came\n");
  QObject::disconnect(connection);
  return milliseconds(Clock::now() - begin);
}

inline void print(const char* name, const Frames& frames) {
  fmt::print("{:<44} {:>6} frames {:>8.2f} ms {:>8.2f} ms {:>8.2f} ms {:>4} dropped\n", name,
             frames.costs.size(), frames.at(0.5), frames.at(0.99), frames.at(1), frames.dropped());
}

inline void print(const char* name, const Frames& times, double goal) {
  fmt::print("{:<44} {:>6} times  {:>8.2f} ms {:>8.2f} ms {:>8.2f} ms   goal {:.0f}\n", name,
             times.costs.size(), times.at(0.5), times.at(0.99), times.at(1), goal);
}

}  // namespace ostrel::bench
