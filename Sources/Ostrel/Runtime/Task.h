// Lazy coroutines with structured cancellation.
//
// A `Task<T>` does nothing until it is awaited by another task or started through a `TaskScope`. The scope
// belongs to the object whose state the task touches; when the scope is destroyed its tasks are destroyed
// where they are suspended, their locals unwinding as usual, so no task outlives its owner.
// `TaskScope::cancel` asks instead: the tasks see `Cancelled` thrown from the call they await. A cancelled
// task gets no result any more, even one that had come already: from `cancel` on, no awaited leaf call of it
// returns.
//
// Rules: main thread only; parameters by value; no capturing lambdas as coroutines (the frame would outlive
// the captures); a scope must not be destroyed from inside one of its own tasks (that ends the program).
#pragma once

#include <coroutine>
#include <exception>
#include <list>
#include <memory>
#include <optional>
#include <stop_token>
#include <type_traits>
#include <utility>
#include <variant>

#include "Runtime/Failure.h"
#include "Runtime/MainLoop.h"

namespace ostrel {

class TaskScope;

// What a task inherits from whoever started it: the loop it resumes on, its cancellation and its scope.
struct TaskContext {
  MainLoop* loop = nullptr;
  std::stop_token stop;
  TaskScope* scope = nullptr;
};

namespace detail {

// Told when the outermost task of a scope has ended.
class RootTask {
 public:
  virtual ~RootTask() = default;
  virtual void ended() noexcept = 0;
};

class PromiseBase {
 public:
  std::suspend_always initial_suspend() noexcept { return {}; }
  auto final_suspend() noexcept {
    struct FinalAwaiter {
      PromiseBase& promise;
      bool await_ready() noexcept { return false; }
      std::coroutine_handle<> await_suspend(std::coroutine_handle<>) noexcept {
        if (promise.continuation) return promise.continuation;
        if (promise.root) promise.root->ended();
        return std::noop_coroutine();
      }
      void await_resume() noexcept {}
    };
    return FinalAwaiter{*this};
  }

  TaskContext context;
  std::coroutine_handle<> continuation;  // the awaiting task; none for the root of a scope
  RootTask* root = nullptr;
};

// A rule of this header was broken: says so on standard error and ends the program.
[[noreturn]] void misuse(const char* rule) noexcept;

}  // namespace detail

template <class T = void>
class [[nodiscard]] Task {
  static_assert(!std::is_reference_v<T>, "a task returns values");

 public:
  struct promise_type : detail::PromiseBase {
    std::variant<std::monostate, T, std::exception_ptr> result;

    Task get_return_object() { return Task(std::coroutine_handle<promise_type>::from_promise(*this)); }
    void unhandled_exception() { result.template emplace<2>(std::current_exception()); }
    template <class U = T>
    void return_value(U&& value) {
      result.template emplace<1>(std::forward<U>(value));
    }
    T take() {
      if (result.index() == 2) std::rethrow_exception(std::get<2>(std::move(result)));
      return std::get<1>(std::move(result));
    }
  };

  Task(Task&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  Task& operator=(Task&& other) noexcept {
    if (this != &other) {
      if (const auto old = std::exchange(handle_, std::exchange(other.handle_, nullptr))) old.destroy();
    }
    return *this;
  }
  ~Task() {
    if (handle_) handle_.destroy();
  }

  class Awaiter {
   public:
    bool await_ready() const noexcept { return false; }
    template <class P>
    std::coroutine_handle<> await_suspend(std::coroutine_handle<P> parent) noexcept {
      if (!child_) detail::misuse("A task can be awaited once only.");
      child_.promise().context = parent.promise().context;
      child_.promise().continuation = parent;
      return child_;
    }
    T await_resume() { return child_.promise().take(); }

   private:
    friend class Task;
    explicit Awaiter(std::coroutine_handle<promise_type> child) : child_(child) {}
    std::coroutine_handle<promise_type> child_;
  };
  Awaiter operator co_await() && noexcept { return Awaiter(handle_); }

 private:
  friend class TaskScope;
  explicit Task(std::coroutine_handle<promise_type> handle) : handle_(handle) {}
  std::coroutine_handle<promise_type> handle_;
};

template <>
struct Task<void>::promise_type : detail::PromiseBase {
  std::exception_ptr error;

  Task get_return_object() { return Task(std::coroutine_handle<promise_type>::from_promise(*this)); }
  void unhandled_exception() { error = std::current_exception(); }
  void return_void() {}
  void take() {
    if (error) std::rethrow_exception(std::move(error));
  }
};

// One suspended call of a task: the part that every leaf awaiter shares. The awaiter holds it as its last
// member, calls `begin` when it suspends and `finish` when its event has come; the task then resumes through
// the loop's queue, never inside `finish`. Cancellation finishes the wait too. Destroying the wait (with the
// task's frame) makes a resumption that is already queued do nothing.
class Wait {
 public:
  Wait() = default;
  Wait(const Wait&) = delete;
  Wait& operator=(const Wait&) = delete;
  ~Wait();

  // False when the task is cancelled already: its resumption is queued, and the awaiter registers nothing.
  // `onCancel` runs at most once, inside `TaskScope::cancel` and not after `finish`: it takes back what the
  // awaiter registered.
  bool begin(std::coroutine_handle<> handle, const TaskContext& context,
             std::move_only_function<void()> onCancel = {});
  // The first call after `begin` counts, later ones do nothing. Main thread only.
  void finish();
  // Called from `await_resume`: throws `Cancelled` when the task was cancelled, whether before `finish` or
  // after.
  void check() const;

 private:
  struct State;
  void drop();
  std::shared_ptr<State> state_;
};

// Owns running tasks. A member of the object whose state they touch, declared last so that it goes first.
class TaskScope {
 public:
  explicit TaskScope(MainLoop& loop);
  TaskScope(const TaskScope&) = delete;
  TaskScope& operator=(const TaskScope&) = delete;
  // Cancels, and destroys every task where it stands, the latest first.
  ~TaskScope();

  // Starts `task` on the loop's next turn. One that is cancelled before that never runs. A task must handle
  // its own failures: one that ends with an exception other than `Cancelled` ends the program, as an uncaught
  // exception of a thread does.
  void start(Task<void> task);
  // Asks all running tasks to stop. Tasks started later are not affected. May be called from inside a task.
  void cancel();
  // Tasks that have not ended yet.
  std::size_t running() const;
  MainLoop& loop() const { return loop_; }

 private:
  friend class Wait;
  class Entry;
  void resume(std::coroutine_handle<> handle);
  void destroyEnded();

  MainLoop& loop_;
  std::stop_source stop_;
  std::list<std::shared_ptr<Entry>> entries_;
  int resuming_ = 0;  // how many of our tasks are on the stack
  bool anyEnded_ = false;
  bool closing_ = false;
};

class SleepAwaiter {
 public:
  explicit SleepAwaiter(Duration delay) : delay_(delay) {}
  bool await_ready() const noexcept { return false; }
  template <class P>
  void await_suspend(std::coroutine_handle<P> handle) {
    const TaskContext& context = handle.promise().context;
    if (!wait_.begin(handle, context, [this] { timer_.reset(); })) return;
    timer_ = context.loop->after(delay_, [this] { wait_.finish(); });
  }
  void await_resume() {
    timer_.reset();
    wait_.check();
  }

 private:
  Duration delay_;
  Timer timer_;
  Wait wait_;
};

// `co_await sleepFor(2s)`: suspends for that long. Throws `Cancelled`.
inline SleepAwaiter sleepFor(Duration delay) { return SleepAwaiter(delay); }

class ContextAwaiter {
 public:
  bool await_ready() const noexcept { return false; }
  template <class P>
  bool await_suspend(std::coroutine_handle<P> handle) noexcept {
    context_ = handle.promise().context;
    return false;
  }
  TaskContext await_resume() noexcept { return std::move(context_); }

 private:
  TaskContext context_;
};

// `co_await currentContext()`: the task's own loop and stop token, without suspending.
inline ContextAwaiter currentContext() { return {}; }

// A flag that one task waits for and others raise: the wake-up of a sleeping loop. Main thread only.
// Raising it before the wait begins makes the wait end at once; a finished wait leaves it lowered.
// It outlives the tasks that wait for it.
class WakeFlag {
 public:
  class Awaiter {
   public:
    Awaiter(WakeFlag& flag, Duration limit) : flag_(flag), limit_(limit) {}
    Awaiter(const Awaiter&) = delete;
    Awaiter& operator=(const Awaiter&) = delete;
    ~Awaiter() {
      if (flag_.waiter_ == this) flag_.waiter_ = nullptr;
    }
    bool await_ready() const noexcept { return false; }
    template <class P>
    void await_suspend(std::coroutine_handle<P> handle) {
      const TaskContext& context = handle.promise().context;
      if (flag_.waiter_) detail::misuse("A flag has one waiter at a time.");
      if (!wait_.begin(handle, context, [this] { timer_.reset(); })) return;
      flag_.waiter_ = this;
      if (flag_.raised_) {
        wait_.finish();
      } else if (limit_ != Duration::max()) {
        timer_ = context.loop->after(limit_, [this] { wait_.finish(); });
      }
    }
    bool await_resume() {
      if (flag_.waiter_ == this) flag_.waiter_ = nullptr;
      timer_.reset();
      wait_.check();
      return std::exchange(flag_.raised_, false);
    }

   private:
    friend class WakeFlag;
    WakeFlag& flag_;
    Duration limit_;
    Timer timer_;
    Wait wait_;
  };

  void raise() {
    raised_ = true;
    if (waiter_) waiter_->wait_.finish();
  }
  void lower() { raised_ = false; }
  bool raised() const { return raised_; }

  // `co_await flag.waitFor(5s)`: true when raised, false when the time ran out. Throws `Cancelled`.
  // One waiter at a time.
  Awaiter waitFor(Duration limit) { return Awaiter(*this, limit); }
  // `co_await flag.wait()`: until raised.
  Awaiter wait() { return Awaiter(*this, Duration::max()); }

 private:
  Awaiter* waiter_ = nullptr;
  bool raised_ = false;
};

}  // namespace ostrel
