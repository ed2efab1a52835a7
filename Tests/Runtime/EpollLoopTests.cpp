// What only one of the loops promises; the contract of both stands in MainLoopTests.
#include <algorithm>
#include <poll.h>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Runtime/EpollLoop.h"
#include "Support/Pipe.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

bool readable(const EpollLoop& loop, int milliseconds = 0) {
  pollfd polled{.fd = loop.descriptor(), .events = POLLIN, .revents = 0};
  return ::poll(&polled, 1, milliseconds) > 0;
}

TEST(EpollLoopTest, DescriptorIsReadableExactlyWhenThereIsWork) {
  EpollLoop loop;
  EXPECT_FALSE(readable(loop));
  EXPECT_FALSE(loop.dispatch());

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
  EXPECT_TRUE(loop.dispatch());
  EXPECT_GE(ran, 64);
  EXPECT_LE(ran, 64 + 3 * 8);
  int turns = 1;
  for (; readable(loop); ++turns) EXPECT_TRUE(loop.dispatch());
  EXPECT_EQ(ran, 1000);
  EXPECT_LE(turns, 17);

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
  std::vector<int> seen;
  loop.post([&] {
    seen.push_back(1);
    EXPECT_FALSE(loop.dispatch()) << "a turn inside a turn";
    loop.stop();
  });
  loop.post([&] {
    seen.push_back(2);
    loop.stop();
  });
  loop.run();
  EXPECT_EQ(seen, (std::vector<int>{1}));
  EXPECT_TRUE(readable(loop));
  loop.run();
  EXPECT_EQ(seen, (std::vector<int>{1, 2}));
  loop.stop();
  loop.run();
}

TEST(VirtualLoopTest, TimeMovesOnlyWhenAsked) {
  VirtualLoop loop;
  std::vector<std::pair<std::string, Duration>> seen;
  const auto start = loop.now();
  const auto wall = loop.wallNow();
  const auto note = [&](std::string word) {
    return [&, word] { seen.emplace_back(word, loop.now() - start); };
  };
  const Timer late = loop.after(4s, note("late"));
  const Timer early = loop.after(60ms, note("early"));
  loop.runUntilIdle();
  EXPECT_TRUE(seen.empty());
  loop.runFor(2min);
  EXPECT_EQ(seen, (std::vector<std::pair<std::string, Duration>>{std::pair("early", Duration(60ms)),
                                                                 std::pair("late", Duration(4s))}));
  EXPECT_EQ(loop.now() - start, Duration(2min));
  EXPECT_EQ(loop.wallNow() - wall, Duration(2min));

  seen.clear();
  const Timer slept = loop.after(1s, note("slept over"));
  loop.advance(1h);
  EXPECT_TRUE(seen.empty());
  loop.runUntilIdle();
  EXPECT_EQ(seen,
            (std::vector<std::pair<std::string, Duration>>{std::pair("slept over", Duration(2min + 1h))}));
  EXPECT_FALSE(loop.runUntil([] { return false; }, 5s));

  Pipe pipe;
  pipe.write();
  const Watch watch = loop.watch(pipe.reader.get(), {.read = true}, [](Interest) {});
  EXPECT_THROW(loop.runUntilIdle(), std::logic_error);
}

}  // namespace
}  // namespace ostrel
