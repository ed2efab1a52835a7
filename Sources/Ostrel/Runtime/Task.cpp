#include "Runtime/Task.h"

#include <cstdio>
#include <cstdlib>

namespace ostrel {

namespace detail {

void misuse(const char* rule) noexcept {
  std::fprintf(stderr, "Ostrel: %s\n", rule);
  std::abort();
}

}  // namespace detail

struct Wait::State : std::enable_shared_from_this<Wait::State> {
  // Runs inside `TaskScope::cancel`.
  struct OnStop {
    State* state;
    void operator()() const noexcept {
      if (state->queued) return;
      const auto kept = state->shared_from_this();  // the hook may destroy the task
      if (auto hook = std::exchange(state->onCancel, nullptr)) hook();
      state->queue();
    }
  };

  void queue() {
    if (std::exchange(queued, true)) return;
    scope->loop().post([self = shared_from_this()] {
      if (const auto waiting = std::exchange(self->handle, nullptr)) self->scope->resume(waiting);
    });
  }

  std::coroutine_handle<> handle;  // none once resumed or given up
  TaskScope* scope = nullptr;
  std::stop_token stop;
  std::move_only_function<void()> onCancel;
  bool queued = false;
  std::optional<std::stop_callback<OnStop>> stopping;
};

Wait::~Wait() { drop(); }

void Wait::drop() {
  if (!state_) return;
  // The state may live on in the loop's queue; nothing in it may.
  state_->stopping.reset();
  state_->handle = nullptr;
  state_->onCancel = nullptr;
  state_->queued = true;
  state_.reset();
}

bool Wait::begin(std::coroutine_handle<> handle, const TaskContext& context,
                 std::move_only_function<void()> onCancel) {
  drop();
  state_ = std::make_shared<State>();
  state_->handle = handle;
  state_->scope = context.scope;
  state_->stop = context.stop;
  if (context.stop.stop_requested()) {
    state_->queue();
    return false;
  }
  state_->onCancel = std::move(onCancel);
  state_->stopping.emplace(context.stop, State::OnStop{state_.get()});
  return true;
}

void Wait::finish() {
  if (state_) state_->queue();
}

void Wait::check() const {
  if (state_ && state_->stop.stop_requested()) throw Cancelled();
}

class TaskScope::Entry final : public detail::RootTask {
 public:
  Entry(TaskScope& owner, Task<void> work)
      : scope(owner), task(std::move(work)), stop(owner.stop_.get_token()) {}
  Entry(const Entry&) = delete;
  Entry& operator=(const Entry&) = delete;
  ~Entry() override = default;

  void ended() noexcept override {
    markEnded();
    if (const auto error = std::exchange(task.handle_.promise().error, nullptr)) {
      try {
        std::rethrow_exception(error);
      } catch (const Cancelled&) {
        return;
      }
      // Any other exception leaves a function that may not throw, and so ends the program.
    }
  }

  void markEnded() { over = scope.anyEnded_ = true; }

  TaskScope& scope;
  Task<void> task;
  std::stop_token stop;
  bool over = false;
};

TaskScope::TaskScope(MainLoop& loop) : loop_(loop) {}

TaskScope::~TaskScope() {
  if (resuming_ > 0) detail::misuse("A scope was destroyed from inside one of its own tasks.");
  closing_ = true;
  stop_.request_stop();
  while (!entries_.empty()) {
    const auto entry = std::move(entries_.back());
    entries_.pop_back();
  }
}

void TaskScope::start(Task<void> task) {
  // While the scope is going, so is its owner: what the unwinding tasks start has nothing to run on.
  if (closing_) return;
  const auto entry = std::make_shared<Entry>(*this, std::move(task));
  auto& promise = entry->task.handle_.promise();
  promise.context = {.loop = &loop_, .stop = entry->stop, .scope = this};
  promise.root = entry.get();
  entries_.push_back(entry);
  loop_.post([this, weak = std::weak_ptr(entry)] {
    const auto starting = weak.lock();
    if (!starting) return;
    if (!starting->stop.stop_requested()) return resume(starting->task.handle_);
    starting->markEnded();
    destroyEnded();
  });
}

void TaskScope::resume(std::coroutine_handle<> handle) {
  ++resuming_;
  handle.resume();
  --resuming_;
  destroyEnded();
}

// Nothing may follow a call of this: with its parameters a frame can drop the last hold on the scope's owner.
void TaskScope::destroyEnded() {
  if (resuming_ > 0 || !std::exchange(anyEnded_, false)) return;
  std::list<std::shared_ptr<Entry>> ended;
  for (auto entry = entries_.begin(); entry != entries_.end();) {
    const auto next = std::next(entry);
    if ((*entry)->over) ended.splice(ended.end(), entries_, entry);
    entry = next;
  }
}

void TaskScope::cancel() { std::exchange(stop_, std::stop_source()).request_stop(); }

std::size_t TaskScope::running() const {
  std::size_t count = 0;
  for (const auto& entry : entries_) count += entry->over ? 0 : 1;
  return count;
}

}  // namespace ostrel
