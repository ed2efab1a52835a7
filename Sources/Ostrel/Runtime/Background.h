// Blocking work (file reads, tool runs, scans) off the main thread, awaited by tasks.
//
// Work runs on a bounded pool of threads and must not touch published state: it takes values and returns a
// value. A failure that it throws is thrown again by the awaiting task. When the task is cancelled or
// destroyed, the work's stop token fires and its result is dropped; work that can take long looks at the
// token and throws `Cancelled`. Results are destroyed on the main thread, the work with its captures on the
// pool's, before the task resumes. Work that can block for minutes belongs in a pool of its own, so that it
// holds up nobody.
#pragma once

#include <condition_variable>
#include <coroutine>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <thread>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "Runtime/Failure.h"
#include "Runtime/MainLoop.h"
#include "Runtime/Task.h"

namespace ostrel {

// Where work runs. `BackgroundPool` is the program's; tests have one that runs it at once.
class Background {
 public:
  using Job = std::move_only_function<void()>;

  Background() = default;
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;
  virtual ~Background() = default;

  // Plain form: runs `job`, with nobody waiting. `job` must not throw. Any thread may call this. Throws
  // `Failure` (and drops the job) when the system refuses the first thread.
  virtual void submit(Job job) = 0;

  // `co_await background.run([...](std::stop_token stop) { return value; })`.
  template <class F>
  auto run(F work);
};

class BackgroundPool final : public Background {
 public:
  // `threads` is the most that run at once; they start at first need and end after `linger` without work, so
  // that a resident program at rest keeps none.
  explicit BackgroundPool(unsigned threads = 2, Duration linger = std::chrono::seconds(10));
  // Drops queued work and waits for what is running, so destroy it before the loop and after the scopes. Not
  // from a job.
  ~BackgroundPool() override;

  void submit(Job job) override;

  // Threads that exist now.
  unsigned threads() const;

 private:
  void threadMain();
  void leave(std::unique_lock<std::mutex>& lock);

  const unsigned limit_;
  const Duration linger_;
  mutable std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Job> queue_;
  std::vector<std::thread> threads_;
  std::vector<std::thread> ended_;  // have left `threads_` and only return: to be joined
  unsigned idle_ = 0;
  bool closing_ = false;
};

// Runs jobs of a pool one at a time, in the order of submission: the executor of an owner that serves one
// call at a time. Jobs of other owners get their turn in between. Thread-safe; the pool must outlive it. Jobs
// submitted before it is destroyed still run.
class SerialQueue {
 public:
  explicit SerialQueue(Background& pool) : state_(std::make_shared<State>(pool)) {}
  // `job` must not throw. Throws as `BackgroundPool::submit` does.
  void submit(Background::Job job) { submitTo(state_, std::move(job)); }
  template <class F>
  auto run(F work);

 private:
  struct State {
    explicit State(Background& owner) : pool(owner) {}
    Background& pool;
    std::mutex mutex;
    std::deque<Background::Job> queue;
    bool busy = false;  // the pool has, or runs, our next step
  };
  static void submitTo(const std::shared_ptr<State>& state, Background::Job job);
  static void step(const std::shared_ptr<State>& state);
  std::shared_ptr<State> state_;
};

// The awaiter behind `run`: `submit` hands the wrapped work to a pool or a serial queue.
template <class F>
class [[nodiscard]] BackgroundAwaiter {
 public:
  using Result = std::invoke_result_t<F&, std::stop_token>;
  using Stored = std::conditional_t<std::is_void_v<Result>, std::monostate, Result>;
  using Submit = std::move_only_function<void(Background::Job)>;

  BackgroundAwaiter(F work, Submit submit) : work_(std::move(work)), submit_(std::move(submit)) {}
  BackgroundAwaiter(const BackgroundAwaiter&) = delete;
  BackgroundAwaiter& operator=(const BackgroundAwaiter&) = delete;
  ~BackgroundAwaiter() { abandon(); }

  bool await_ready() const noexcept { return false; }
  template <class P>
  void await_suspend(std::coroutine_handle<P> handle) {
    const TaskContext& context = handle.promise().context;
    if (!wait_.begin(handle, context, [this] { abandon(); })) return;
    shared_ = std::make_shared<Shared>();
    shared_->waiter = this;
    submit_([shared = shared_, loop = context.loop, work = std::optional<F>(std::move(work_))]() mutable {
      execute(*shared, *work);
      work.reset();
      // The last use on this thread: from here on `shared` belongs to the main thread.
      loop->post([shared = std::move(shared)] {
        if (shared->waiter) shared->waiter->wait_.finish();
      });
    });
  }
  Result await_resume() {
    wait_.check();
    if (shared_->error) std::rethrow_exception(std::exchange(shared_->error, nullptr));
    if constexpr (!std::is_void_v<Result>) return std::move(*shared_->value);
  }

 private:
  struct Shared {
    BackgroundAwaiter* waiter = nullptr;  // main thread only
    std::stop_source stop;
    std::optional<Stored> value;
    std::exception_ptr error;
  };

  static void execute(Shared& shared, F& work) {
    if (shared.stop.stop_requested()) return;
    try {
      if constexpr (std::is_void_v<Result>) {
        work(shared.stop.get_token());
        shared.value.emplace();
      } else {
        shared.value.emplace(work(shared.stop.get_token()));
      }
    } catch (...) {
      shared.error = std::current_exception();
    }
  }
  void abandon() {
    if (!shared_) return;
    shared_->waiter = nullptr;
    shared_->stop.request_stop();
  }

  F work_;
  Submit submit_;
  std::shared_ptr<Shared> shared_;
  Wait wait_;
};

template <class F>
auto Background::run(F work) {
  return BackgroundAwaiter<F>(std::move(work), [this](Job job) { submit(std::move(job)); });
}

template <class F>
auto SerialQueue::run(F work) {
  return BackgroundAwaiter<F>(std::move(work),
                              [state = state_](Background::Job job) { submitTo(state, std::move(job)); });
}

}  // namespace ostrel
