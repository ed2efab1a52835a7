// What only the real loop promises; the contract that it shares with the tests' own stands in MainLoopTests.
#include <algorithm>
#include <poll.h>
#include <vector>

#include <gtest/gtest.h>

#include "Runtime/EpollLoop.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

bool readable(const EpollLoop& loop, int milliseconds = 0) {
  pollfd polled{.fd = loop.descriptor(), .events = POLLIN, .revents = 0};
  return ::poll(&polled, 1, milliseconds) > 0;
}

TEST(EpollLoopTest, DescriptorIsReadableExactlyWhenThereIsWork) {
  EpollLoop loop;
  EXPECT_FALSE(readable(loop) || loop.dispatch());
  loop.post([] {});
  EXPECT_TRUE(readable(loop));
  EXPECT_TRUE(loop.dispatch());
  EXPECT_FALSE(readable(loop));

  Timer timer = loop.after(1h, [] {});
  EXPECT_FALSE(readable(loop));
  timer = loop.after(1ms, [] {});
  EXPECT_TRUE(readable(loop, 5000));
  timer.reset();
  EXPECT_FALSE(readable(loop)) << "a timer that was reset after it fell due";
  timer = loop.after(2ms, [] {});
  timer = loop.after(1h, [] {});
  EXPECT_FALSE(readable(loop, 20)) << "a timer that was replaced before it fell due";
  timer = loop.after(0ms, [] {});
  EXPECT_TRUE(readable(loop, 5000));
  EXPECT_TRUE(loop.dispatch());
  EXPECT_FALSE(readable(loop));
}

TEST(EpollLoopTest, TurnIsBoundedAndWhatIsLeftKeepsTheDescriptorReadable) {
  EpollLoop loop;
  int ran = 0;
  for (int i = 0; i < 1000; ++i) loop.post([&] { ++ran; });
  int most = 0;
  for (int before = 0; readable(loop); before = ran) {
    EXPECT_TRUE(loop.dispatch());
    most = std::max(most, ran - before);
  }
  EXPECT_EQ(ran, 1000);
  EXPECT_GE(most, 64) << "a loaded machine may end a turn early by its time, but not each";
  EXPECT_LE(most, 64 + 3 * 8);

  ran = 0;
  std::vector<Timer> timers;
  for (int i = 0; i < 200; ++i) timers.push_back(loop.after(0ms, [&] { ++ran; }));
  ASSERT_TRUE(readable(loop, 5000));
  loop.dispatch();
  EXPECT_LT(ran, 200);
  EXPECT_TRUE(readable(loop));
  while (readable(loop)) loop.dispatch();
  EXPECT_EQ(ran, 200);

  // Slow callbacks end the turn by its time.
  ran = 0;
  const auto slow = [&] {
    const auto end = loop.now() + 3ms;
    while (loop.now() < end) continue;
    ++ran;
  };
  for (int i = 0; i < 20; ++i) loop.post(slow);
  loop.dispatch();
  EXPECT_LE(ran, 3);
}

TEST(EpollLoopTest, StopEndsRunAfterTheCurrentCallback) {
  EpollLoop loop;
  int ran = 0;
  for (int i = 0; i < 2; ++i) {
    loop.post([&] {
      ++ran;
      EXPECT_FALSE(loop.dispatch()) << "a turn inside a turn";
      loop.stop();
    });
  }
  for (const int runs : {1, 2}) {
    loop.run();
    EXPECT_EQ(ran, runs);
  }
  loop.stop();
  loop.run();
}

}  // namespace
}  // namespace ostrel
