#include "Runtime/Background.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace ostrel {

namespace {

void runJob(BackgroundPool::Job& job) noexcept { job(); }

}  // namespace

BackgroundPool::BackgroundPool(unsigned threads, Duration linger)
    : limit_(std::max(1u, threads)), linger_(linger) {}

BackgroundPool::~BackgroundPool() {
  std::deque<Job> dropped;
  std::unique_lock lock(mutex_);
  closing_ = true;
  dropped.swap(queue_);
  wake_.notify_all();
  while (!threads_.empty() || !ended_.empty()) {
    auto& group = threads_.empty() ? ended_ : threads_;
    std::thread thread = std::move(group.back());
    group.pop_back();
    lock.unlock();
    thread.join();
    lock.lock();
  }
}

void BackgroundPool::submit(Job job) {
  const std::scoped_lock lock(mutex_);
  if (closing_) return;
  queue_.push_back(std::move(job));
  if (queue_.size() > idle_ && threads_.size() < limit_) {
    try {
      threads_.emplace_back([this] { threadMain(); });
      return;
    } catch (const std::system_error& error) {
      if (threads_.empty()) {
        job = std::move(queue_.back());  // to be destroyed without the lock
        queue_.pop_back();
        throw Failure::ofErrno("Could not start background work", error.code().value());
      }
    }
  }
  wake_.notify_one();
}

unsigned BackgroundPool::threads() const {
  const std::scoped_lock lock(mutex_);
  return static_cast<unsigned>(threads_.size());
}

void BackgroundPool::threadMain() {
  std::unique_lock lock(mutex_);
  while (!closing_) {
    if (queue_.empty()) {
      ++idle_;
      const bool called = wake_.wait_for(lock, linger_, [this] { return closing_ || !queue_.empty(); });
      --idle_;
      if (!called) break;
      continue;
    }
    Job job = std::move(queue_.front());
    queue_.pop_front();
    lock.unlock();
    runJob(job);
    job = nullptr;
    lock.lock();
  }
  leave(lock);
}

// An ended thread keeps its stack until it is joined: the next to end does that, so that at most one waits.
void BackgroundPool::leave(std::unique_lock<std::mutex>& lock) {
  const auto self = std::ranges::find(threads_, std::this_thread::get_id(), &std::thread::get_id);
  if (self == threads_.end()) return;  // the destructor joins us
  auto earlier = std::exchange(ended_, {});
  ended_.push_back(std::move(*self));
  threads_.erase(self);
  lock.unlock();
  for (auto& thread : earlier) thread.join();
}

void SerialQueue::submitTo(const std::shared_ptr<State>& state, Background::Job job) {
  {
    const std::scoped_lock lock(state->mutex);
    state->queue.push_back(std::move(job));
    if (std::exchange(state->busy, true)) return;
  }
  try {
    state->pool.submit([state] { step(state); });
  } catch (...) {
    std::deque<BackgroundPool::Job> dropped;
    const std::scoped_lock lock(state->mutex);
    state->busy = false;
    dropped.swap(state->queue);
    throw;
  }
}

// One job a step, so that the pool's other work gets its turn.
void SerialQueue::step(const std::shared_ptr<State>& state) {
  Background::Job job;
  {
    const std::scoped_lock lock(state->mutex);
    job = std::move(state->queue.front());
    state->queue.pop_front();
  }
  runJob(job);
  job = nullptr;
  {
    const std::scoped_lock lock(state->mutex);
    state->busy = !state->queue.empty();
    if (!state->busy) return;
  }
  state->pool.submit([state] { step(state); });
}

}  // namespace ostrel
