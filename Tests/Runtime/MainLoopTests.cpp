// The contract of `MainLoop`, asked of the real loop (run by itself, and nested as in a foreign loop) and of
// the tests' virtual one.
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Runtime/EpollLoop.h"
#include "Runtime/Failure.h"
#include "Runtime/MainLoop.h"
#include "Runtime/UniqueFd.h"
#include "Support/Pipe.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;
using Words = std::vector<std::string>;
using Done = std::function<bool()>;

constexpr auto kPatience = 20s;  // of real time, for a machine under load

struct VirtualDriver {
  VirtualLoop loop;
  bool until(const Done& done) { return loop.runUntil(done); }
  bool untilReal(const Done& done) { return loop.waitUntil(done); }
};

// The loop as the desktop nests it: a foreign loop polls its descriptor.
struct NestedDriver {
  EpollLoop loop;
  bool until(const Done& done) {
    const auto end = loop.now() + kPatience;
    while (!done() && loop.now() < end) {
      pollfd polled{.fd = loop.descriptor(), .events = POLLIN, .revents = 0};
      if (::poll(&polled, 1, 1000) > 0) loop.dispatch();
    }
    return done();
  }
  bool untilReal(const Done& done) { return until(done); }
};

struct RunningDriver {
  EpollLoop loop;
  Timer timer;
  void look(const Done& done, TimePoint end) {
    if (done() || loop.now() > end) return loop.stop();
    timer = loop.after(1ms, [this, &done, end] { look(done, end); });
  }
  bool until(const Done& done) {
    look(done, loop.now() + kPatience);
    loop.run();
    return done();
  }
  bool untilReal(const Done& done) { return until(done); }
};

std::pair<UniqueFd, UniqueFd> sockets() {
  int ends[2];
  EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
  return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

template <class Driver>
class MainLoopTest : public testing::Test {
 protected:
  Driver driver;
  MainLoop& loop = driver.loop;
  Words seen;
  MainLoop::Work note(std::string word) {
    return [this, word] { seen.push_back(word); };
  }
  // Everything that is ready now has run: a later timer has been overtaken by nothing.
  bool settle() {
    bool over = false;
    const Timer timer = loop.after(5ms, [&] { over = true; });
    return driver.until([&] { return over; });
  }
};

using Drivers = testing::Types<VirtualDriver, NestedDriver, RunningDriver>;
TYPED_TEST_SUITE(MainLoopTest, Drivers);

TYPED_TEST(MainLoopTest, PostedWorkRunsInOrderAndNeverInside) {
  this->loop.post([this] {
    this->seen.push_back("first");
    this->loop.post(this->note("third"));
    this->seen.push_back("still first");
  });
  this->loop.post(this->note("second"));
  EXPECT_TRUE(this->seen.empty());
  ASSERT_TRUE(this->settle());
  EXPECT_EQ(this->seen, (Words{"first", "still first", "second", "third"}));
}

TYPED_TEST(MainLoopTest, TimersRunByInstantThenByMaking) {
  std::vector<Timer> timers;
  timers.push_back(this->loop.after(1s, this->note("late")));  // however long the next lines take
  timers.push_back(this->loop.after(0ms, this->note("now, first")));
  timers.push_back(this->loop.after(0ms, this->note("now, second")));
  timers.push_back(this->loop.after(Duration::max(), this->note("never")));
  timers.push_back(this->loop.after(-5s, this->note("now, third")));
  EXPECT_TRUE(this->seen.empty());
  ASSERT_TRUE(this->driver.until([this] { return this->seen.size() >= 4; }));
  EXPECT_EQ(this->seen, (Words{"now, first", "now, second", "now, third", "late"}));
}

TYPED_TEST(MainLoopTest, ResetTimersDoNotRun) {
  Timer second, own, again;
  const Timer first = this->loop.after(0ms, [&] { second.reset(); });
  second = this->loop.after(0ms, this->note("reset by the first"));
  own = this->loop.after(0ms, [&, kept = std::make_shared<std::string>("own")] {
    own.reset();  // the captures must live on until the callback returns
    this->seen.push_back(*kept);
    again = this->loop.after(0ms, this->note("made in a callback"));
  });
  Timer replaced = this->loop.after(0ms, this->note("replaced"));
  replaced = this->loop.after(0ms, this->note("replacement"));
  ASSERT_TRUE(this->settle());
  EXPECT_EQ(this->seen, (Words{"own", "replacement", "made in a callback"}));
}

TYPED_TEST(MainLoopTest, WatchesAreLevelTriggeredAndReportWhatWasAskedFor) {
  Pipe pipe;
  int reads = 0;
  const Watch watch = this->loop.watch(pipe.reader.get(), {.read = true}, [&](Interest ready) {
    EXPECT_EQ(ready, (Interest{.read = true}));
    if (++reads == 3) pipe.drain();
  });
  ASSERT_TRUE(this->settle());
  EXPECT_EQ(reads, 0);
  pipe.write();
  ASSERT_TRUE(this->driver.until([&] { return reads == 3; }));
  ASSERT_TRUE(this->settle());
  EXPECT_EQ(reads, 3);
  const Watch writable = this->loop.watch(pipe.writer.get(), {.write = true}, [&](Interest ready) {
    EXPECT_EQ(ready, (Interest{.write = true}));
    reads = 10;
  });
  EXPECT_TRUE(this->driver.until([&] { return reads == 10; }));
}

TYPED_TEST(MainLoopTest, HangupsEndEveryKindOfWait) {
  enum End { closed, halfClosed, pipeReaderClosed };
  struct Case {
    End end;
    Interest asked;
    std::optional<Interest> expected;
  };
  for (const Case& c : std::initializer_list<Case>{
           {closed, {.read = true}, Interest{.read = true, .hangup = true}},
           {closed, {}, Interest{.hangup = true}},
           {closed, {.read = true, .write = true}, Interest{.read = true, .write = true, .hangup = true}},
           {halfClosed, {.read = true}, Interest{.read = true}},
           {halfClosed, {.hangup = true}, Interest{.hangup = true}},
           {halfClosed, {}, {}},  // nobody's business who only writes
           {pipeReaderClosed, {.write = true}, Interest{.write = true, .hangup = true}}}) {
    SCOPED_TRACE(testing::Message() << c.end << " " << c.asked.read << c.asked.write << c.asked.hangup);
    auto [ours, peer] = sockets();
    ASSERT_EQ(::send(peer.get(), "data", c.asked.hangup ? 4 : 0, 0), c.asked.hangup ? 4 : 0);
    if (c.end == closed) peer.reset();
    if (c.end == halfClosed) ::shutdown(peer.get(), SHUT_WR);
    Pipe pipe;
    pipe.reader.reset();
    std::optional<Interest> got;
    const Watch watch = this->loop.watch(c.end == pipeReaderClosed ? pipe.writer.get() : ours.get(), c.asked,
                                         [&](Interest ready) { got = ready; });
    ASSERT_TRUE(c.expected ? this->driver.until([&] { return got.has_value(); }) : this->settle());
    EXPECT_EQ(got, c.expected);
  }
}

TYPED_TEST(MainLoopTest, WatchesResetInTheSameBatchHearNothing) {
  Pipe pipes[3];
  Watch watches[3];
  int calls = 0;
  for (int i = 0; i < 3; ++i) {
    pipes[i].write();
    watches[i] = this->loop.watch(pipes[i].reader.get(), {.read = true},
                                  [&, kept = std::make_shared<int>(1)](Interest) {
                                    for (Watch& watch : watches) watch.reset();
                                    calls += *kept;
                                  });
  }
  ASSERT_TRUE(this->settle());
  EXPECT_EQ(calls, 1);
}

TYPED_TEST(MainLoopTest, ReusedDescriptorGetsNoEventOfItsPredecessor) {
  Pipe pipes[2];
  Pipe fresh;
  Watch watches[2];
  int old = 0, next = 0, reused = -1;
  for (int i = 0; i < 2; ++i) {
    pipes[i].write();
    watches[i] = this->loop.watch(pipes[i].reader.get(), {.read = true}, [&, i](Interest) {
      ++old;
      // The other pipe is ready in this very batch; its number now goes to an empty pipe.
      const int other = 1 - i;
      reused = pipes[other].reader.get();
      watches[other].reset();
      ASSERT_EQ(::dup3(fresh.reader.get(), reused, O_CLOEXEC), reused);
      watches[other] = this->loop.watch(reused, {.read = true}, [&](Interest) {
        ++next;
        fresh.drain();
      });
      pipes[i].drain();
    });
  }
  ASSERT_TRUE(this->settle());
  EXPECT_EQ(old, 1);
  EXPECT_EQ(next, 0);
  fresh.write();
  EXPECT_TRUE(this->driver.until([&] { return next == 1; }));
}

TYPED_TEST(MainLoopTest, RefusesWhatTheKernelCannotWatch) {
  const UniqueFd file(::open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
  ASSERT_TRUE(file);
  Pipe pipe;
  const int closed = [] { return Pipe().reader.get(); }();
  const auto ready = [](Interest) {};
  const auto tries = [&](int fd) { const Watch watch = this->loop.watch(fd, {.read = true}, ready); };
  EXPECT_THROW(tries(file.get()), Failure);
  EXPECT_THROW(tries(closed), Failure);
  Watch first = this->loop.watch(pipe.reader.get(), {.read = true}, ready);
  EXPECT_THROW(tries(pipe.reader.get()), Failure) << "a second watch";
  first.reset();
  EXPECT_NO_THROW(tries(pipe.reader.get()));
}

TYPED_TEST(MainLoopTest, AnyThreadPostsAndEachKeepsItsOrder) {
  constexpr int kThreads = 4, kPosts = 2000;
  int last[kThreads] = {}, total = 0;
  std::vector<std::jthread> threads;
  for (int& mine : last) {
    threads.emplace_back([&] {
      for (int i = 1; i <= kPosts; ++i) {
        this->loop.post([&, i] {
          EXPECT_EQ(std::exchange(mine, i), i - 1);
          ++total;
        });
      }
    });
  }
  EXPECT_TRUE(this->driver.untilReal([&] { return total == kThreads * kPosts; }));
}

TEST(VirtualLoopTest, AConditionMayRunTheLoopItself) {
  VirtualLoop loop;
  int ran = 0, asked = 0;
  loop.post([&] { ++ran; });
  EXPECT_TRUE(loop.runUntil([&] {
    if (++asked == 2) loop.runUntilIdle();  // takes what the loop is about to serve
    return asked > 2;
  }));
  EXPECT_EQ(ran, 1);
}

}  // namespace
}  // namespace ostrel
