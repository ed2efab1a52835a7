#include <atomic>

#include <gtest/gtest.h>

#include "Runtime/Background.h"
#include "Runtime/Task.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

using Notes = std::vector<std::string>;

// Counts the objects that coroutine frames hold, to see that each is destroyed once.
struct Held {
  explicit Held(std::atomic<int>& counter) : count(&counter) { ++*count; }
  Held(const Held& other) : count(other.count) { ++*count; }
  Held& operator=(const Held&) = delete;
  ~Held() { --*count; }
  std::atomic<int>* count;
};

class TaskTest : public testing::Test {
 protected:
  VirtualLoop loop;
  Notes notes;
  std::atomic<int> held = 0;
};

Task<int> later(Duration delay, int value) {
  co_await sleepFor(delay);
  co_return value;
}

Task<std::unique_ptr<std::string>> moveOnly() { co_return std::make_unique<std::string>("moved"); }

Task<int> failing() {
  co_await sleepFor(1s);
  throw Failure("no such agent");
}

TEST_F(TaskTest, ValuesAndFailuresTravelThroughNestedTasks) {
  const auto whole = [](Notes* notes) -> Task<> {
    notes->push_back(std::to_string(co_await later(1s, 20) + co_await later(2s, 22)));
    notes->push_back(*co_await moveOnly());
    try {
      co_await failing();
    } catch (const Failure& failure) {
      notes->push_back(failure.message());
    }
    // Made now, run when awaited.
    Task<int> made = later(1s, 5);
    co_await sleepFor(1h);
    notes->push_back(std::to_string(co_await std::move(made)));
  };
  TaskScope scope(loop);
  scope.start(whole(&notes));
  loop.runFor(2h);
  EXPECT_EQ(notes, (Notes{"42", "moved", "no such agent", "5"}));
  EXPECT_EQ(scope.running(), 0u);
}

Task<int> atOnce(int value) { co_return value; }

Task<> noteEnd(Notes* notes, std::string name, Duration delay, Held) {
  try {
    notes->push_back(name + " begins");
    co_await sleepFor(delay);
    notes->push_back(name + " ends");
  } catch (const Cancelled&) {
    notes->push_back(name + " cancelled");
    throw;
  }
}

TEST_F(TaskTest, CancelReachesRunningTasksOnly) {
  TaskScope scope(loop);
  scope.start(noteEnd(&notes, "running", 1s, Held(held)));
  EXPECT_TRUE(notes.empty()) << "begins on the next turn";
  loop.runUntilIdle();
  scope.start(noteEnd(&notes, "not begun", 1s, Held(held)));
  scope.cancel();
  scope.start(noteEnd(&notes, "later", 1s, Held(held)));
  EXPECT_EQ(notes, (Notes{"running begins"})) << "never resumed inside cancel";
  EXPECT_EQ(loop.nextTimer(), std::nullopt) << "the sleep is taken back at once";
  loop.runFor(2s);
  EXPECT_EQ(notes, (Notes{"running begins", "running cancelled", "later begins", "later ends"}));
  EXPECT_EQ(held, 0);
}

TEST_F(TaskTest, NothingReturnsAfterCancelAndCleaningUpStaysPossible) {
  const auto task = [](TaskScope* scope, Notes* notes) -> Task<> {
    try {
      co_await sleepFor(1s);
      notes->push_back("slept");
    } catch (const Cancelled&) {
      notes->push_back("cancelled");
    }
    try {
      notes->push_back(std::to_string(co_await atOnce(7)));
      co_await sleepFor(1s);
    } catch (const Cancelled&) {
      notes->push_back("cancelled again");
    }
    scope->cancel();  // from inside, and a second time
    co_await sleepFor(0s);
    notes->push_back("not reached");
  };
  TaskScope scope(loop);
  scope.start(task(&scope, &notes));
  loop.runUntilIdle();
  // The sleep ends, the resumption is queued: then the cancellation comes.
  loop.advance(1s);
  EXPECT_TRUE(loop.step());
  scope.cancel();
  loop.runUntilIdle();
  EXPECT_EQ(notes, (Notes{"cancelled", "7", "cancelled again"}));
  EXPECT_EQ(scope.running(), 0u);
}

Task<int> deep(int levels, BackgroundPool* pool, WakeFlag* flag, Held held) {
  if (levels > 0) {
    const Held local(held);
    const int below = co_await deep(levels - 1, pool, flag, held);
    co_await sleepFor(1s);
    co_return below + 1;
  }
  co_await flag->waitFor(5s);
  co_await pool->run([held](std::stop_token) { return 1; });
  co_return 0;
}

Task<> deepRoot(BackgroundPool* pool, WakeFlag* flag, Held held, bool* ended) {
  const Held local(held);
  co_await deep(3, pool, flag, local);
  *ended = true;
}

TEST_F(TaskTest, DestroyedOrCancelledAtEverySuspension) {
  for (const bool cancels : {false, true}) {
    bool ended = false;
    int steps = 0;
    for (; !ended; ++steps) {
      ASSERT_LT(steps, 100);
      SCOPED_TRACE(steps);
      {
        BackgroundPool pool(1);
        WakeFlag flag;
        TaskScope scope(loop);
        scope.start(deepRoot(&pool, &flag, Held(held), &ended));
        for (int i = 0; i < steps && !ended; ++i) {
          if (loop.step()) continue;
          if (const auto next = loop.nextTimer()) {
            loop.advance(*next - loop.now());
          } else {  // background work is under way
            ASSERT_TRUE(loop.waitUntil([&, first = true]() mutable { return !std::exchange(first, false); }));
          }
        }
        if (cancels) {
          scope.cancel();
          ASSERT_TRUE(loop.waitUntil([&] { return scope.running() == 0; }));
        }
      }
      ASSERT_EQ(held, 0) << "a frame or a capture was left behind, or destroyed twice";
      loop.runFor(1min);  // what is still queued must touch nothing
    }
    EXPECT_GT(steps, 8);
  }
}

// An object that its own task keeps alive: the end of the task is the end of the scope.
struct SelfKept {
  TaskScope scope;
  Held held;
  SelfKept(MainLoop& loop, std::atomic<int>& count) : scope(loop), held(count) {}
};
Task<> keeps(std::shared_ptr<SelfKept>) { co_await sleepFor(1s); }

TEST_F(TaskTest, EndingTaskMayTakeItsOwnerWithIt) {
  for (const bool cancelledEarly : {false, true}) {
    const auto object = std::make_shared<SelfKept>(loop, held);
    object->scope.start(keeps(object));
    if (cancelledEarly) object->scope.cancel();
    const std::weak_ptr<SelfKept> seen = object;
    const_cast<std::shared_ptr<SelfKept>&>(object).reset();
    EXPECT_FALSE(seen.expired());
    loop.runFor(2s);
    EXPECT_TRUE(seen.expired());
  }
  EXPECT_EQ(held, 0);
}

Task<> destroys(std::unique_ptr<TaskScope>* scope) {
  co_await sleepFor(1s);
  scope->reset();
}

Task<> failsAlone() { co_await failing(); }

TEST(TaskDeathTest, BrokenRulesEndTheProgramWithAMessage) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  VirtualLoop loop;
  EXPECT_DEATH(
      {
        auto scope = std::make_unique<TaskScope>(loop);
        scope->start(destroys(&scope));
        loop.runFor(2s);
      },
      "Ostrel: A scope was destroyed from inside one of its own tasks.");
  EXPECT_DEATH(
      {
        TaskScope scope(loop);
        scope.start(failsAlone());
        loop.runFor(2s);
      },
      "no such agent");
}

Task<> countWakes(VirtualLoop* loop, WakeFlag* flag, Notes* notes) {
  for (;;) {
    const auto start = loop->now();
    const bool raised = co_await flag->waitFor(5s);
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(loop->now() - start).count();
    notes->push_back((raised ? "raised after " : "over after ") + std::to_string(seconds));
  }
}

TEST_F(TaskTest, WakeFlagEndsASleepEarly) {
  WakeFlag flag;
  TaskScope scope(loop);
  flag.raise();  // before anyone waits
  scope.start(countWakes(&loop, &flag, &notes));
  loop.runUntilIdle();
  EXPECT_EQ(notes, (Notes{"raised after 0"}));
  loop.runFor(2s);
  flag.raise();
  flag.raise();
  loop.runUntilIdle();
  loop.runFor(5s);
  EXPECT_EQ(notes, (Notes{"raised after 0", "raised after 2", "over after 5"}));
  // Raised and lowered again before the task looks: the wait ends without having been woken.
  flag.raise();
  flag.lower();
  loop.runUntilIdle();
  EXPECT_EQ(notes.back(), "over after 0");
  scope.cancel();
  flag.raise();
  loop.runUntilIdle();
  EXPECT_EQ(scope.running(), 0u);
  EXPECT_TRUE(flag.raised()) << "a cancelled wait takes nothing";
}

}  // namespace
}  // namespace ostrel
