#include <atomic>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Runtime/Background.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;
using Words = std::vector<std::string>;

// Remembers on which thread it went.
struct Witness {
  explicit Witness(std::atomic<std::thread::id>& where) : gone(&where) {}
  Witness(Witness&& other) noexcept : gone(std::exchange(other.gone, nullptr)) {}
  Witness& operator=(Witness&&) = delete;
  ~Witness() {
    if (gone) *gone = std::this_thread::get_id();
  }
  std::atomic<std::thread::id>* gone;
};

class BackgroundTest : public testing::Test {
 protected:
  const std::thread::id main = std::this_thread::get_id();
  VirtualLoop loop;
  BackgroundPool pool{2};
  TaskScope scope{loop};
};

Task<> collect(BackgroundPool* pool, Words* notes) {
  const auto main = std::this_thread::get_id();
  const auto worker = co_await pool->run([](std::stop_token) { return std::this_thread::get_id(); });
  EXPECT_TRUE(worker != main && std::this_thread::get_id() == main);
  auto text = co_await pool->run([](std::stop_token) { return std::make_unique<std::string>("moved"); });
  notes->push_back(*text);
  try {
    co_await pool->run([](std::stop_token) { throw Failure("could not read"); });
  } catch (const Failure& failure) {
    notes->push_back(failure.message());
  }
}

TEST_F(BackgroundTest, ResultsAndFailuresComeBackToTheMainThread) {
  Words notes;
  scope.start(collect(&pool, &notes));
  ASSERT_TRUE(loop.waitUntil([this] { return scope.running() == 0; }));
  EXPECT_EQ(notes, (Words{"moved", "could not read"}));
}

struct Abandon {
  std::atomic<bool> running = false, stopped = false;
  std::atomic<std::thread::id> resultGone{};
  bool returned = false;
};

Task<> abandoned(BackgroundPool* pool, Abandon* seen) {
  const auto result = co_await pool->run([seen](std::stop_token stop) {
    std::binary_semaphore asked(0);
    const std::stop_callback callback(stop, [&] { asked.release(); });
    seen->running = true;
    asked.acquire();
    seen->stopped = true;
    return Witness(seen->resultGone);
  });
  seen->returned = true;
}

TEST_F(BackgroundTest, AbandonedWorkIsToldAndItsResultDropped) {
  for (const bool destroys : {false, true}) {
    SCOPED_TRACE(destroys ? "destroyed" : "cancelled");
    Abandon seen;
    auto own = std::make_unique<TaskScope>(loop);
    own->start(abandoned(&pool, &seen));
    ASSERT_TRUE(loop.waitUntil([&] { return seen.running.load(); }));
    if (destroys) {
      own.reset();
    } else {
      own->cancel();
      loop.runUntilIdle();
      EXPECT_EQ(own->running(), 0u) << "a cancelled task doesn't wait for its work";
    }
    ASSERT_TRUE(loop.waitUntil([&] { return seen.resultGone.load() != std::thread::id(); }));
    EXPECT_TRUE(seen.stopped);
    EXPECT_FALSE(seen.returned);
    EXPECT_EQ(seen.resultGone.load(), main) << "results belong to the main thread";
  }
}

TEST_F(BackgroundTest, QueuedWorkOfACancelledTaskNeverRuns) {
  BackgroundPool one(1);
  std::binary_semaphore blocks(0);
  one.submit([&] { blocks.acquire(); });
  std::atomic<bool> ran = false;
  const auto task = [](BackgroundPool* background, std::atomic<bool>* flag) -> Task<> {
    co_await background->run([flag](std::stop_token) { *flag = true; });
  };
  scope.start(task(&one, &ran));
  loop.runUntilIdle();
  scope.cancel();
  loop.runUntilIdle();
  blocks.release();
  std::atomic<bool> after = false;
  one.submit([&] { after = true; });
  ASSERT_TRUE(loop.waitUntil([&] { return after.load(); }));
  EXPECT_FALSE(ran);
}

TEST_F(BackgroundTest, IdleThreadsEndAndComeBack) {
  BackgroundPool brief(2, 1ms);
  for (int round = 0; round < 50; ++round) {
    std::atomic<int> jobs = 0;
    for (int i = 0; i < 4; ++i) brief.submit([&] { ++jobs; });
    ASSERT_TRUE(loop.waitUntil([&] { return jobs == 4; }));
    if (round % 10 == 0) {
      ASSERT_TRUE(loop.waitUntil([&] { return brief.threads() == 0; }));
    }
  }
}

TEST_F(BackgroundTest, EndingPoolDropsWhatIsQueuedAndWaitsForWhatRuns) {
  std::atomic<bool> finished = false;
  const auto held = std::make_shared<int>();
  std::binary_semaphore started(0), mayEnd(0);
  {
    BackgroundPool one(1);
    one.submit([&] {
      started.release();
      mayEnd.acquire();
      finished = true;
    });
    one.submit([held] {});  // runs or is dropped, according to who is first; it must not be lost halfway
    started.acquire();
    mayEnd.release();
  }
  EXPECT_TRUE(finished);
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(BackgroundTest, SerialQueueKeepsOrderAndLetsOthersIn) {
  BackgroundPool four(4);
  SerialQueue queue(four);
  constexpr int kJobs = 500;
  int done = 0;  // needs no lock: that is the point (the thread sanitizer watches)
  std::binary_semaphore over(0);
  for (int i = 0; i < kJobs; ++i) queue.submit([&, i] { EXPECT_EQ(done++, i); });
  queue.submit([&] { over.release(); });
  ASSERT_TRUE(over.try_acquire_for(20s));
  EXPECT_EQ(done, kJobs);

  // On a single thread, work of others comes between the jobs of a long queue.
  BackgroundPool one(1);
  std::atomic<int> served = 0, servedBefore = -1;
  std::binary_semaphore go(0);
  {
    SerialQueue longQueue(one);
    longQueue.submit([&] { go.acquire(); });
    for (int i = 0; i < 100; ++i) longQueue.submit([&] { ++served; });
    one.submit([&] { servedBefore = served.load(); });
    go.release();
  }
  ASSERT_TRUE(loop.waitUntil([&] { return served == 100 && servedBefore >= 0; }))
      << "what was submitted runs though the queue object is gone";
  EXPECT_LT(servedBefore, 100);
}

}  // namespace
}  // namespace ostrel
