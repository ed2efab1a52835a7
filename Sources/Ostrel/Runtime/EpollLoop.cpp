#include "Runtime/EpollLoop.h"

#include <cerrno>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include <fmt/format.h>

#include "Runtime/Failure.h"

namespace ostrel {

namespace {

constexpr int kBudgetCallbacks = 64;
constexpr Duration kBudgetTime = std::chrono::milliseconds(4);
// How many callbacks of one kind run before the other kinds get their turn.
constexpr int kBatch = 8;

constexpr std::uint64_t kWakeId = 0;
constexpr std::uint64_t kTimerId = 1;
constexpr std::uint64_t kFirstWatchId = 2;

UniqueFd opened(int fd, const char* what) {
  if (fd < 0) throw Failure::ofErrno(what, errno);
  return UniqueFd(fd);
}

void addDescriptor(int epoll, int fd, std::uint64_t id) {
  epoll_event event{.events = EPOLLIN, .data = {.u64 = id}};
  if (::epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) != 0) {
    throw Failure::ofErrno("Could not start the main loop", errno);
  }
}

// A callback that throws has nobody to tell.
template <class Callback, class... Arguments>
void call(Callback& callback, Arguments... arguments) noexcept {
  callback(arguments...);
}

}  // namespace

EpollLoop::EpollLoop()
    : epoll_(opened(::epoll_create1(EPOLL_CLOEXEC), "Could not start the main loop")),
      timer_(opened(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK),
                    "Could not start the main loop")),
      wake_(opened(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "Could not start the main loop")),
      nextWatch_(kFirstWatchId) {
  addDescriptor(epoll_.get(), wake_.get(), kWakeId);
  addDescriptor(epoll_.get(), timer_.get(), kTimerId);
}

EpollLoop::~EpollLoop() {
  std::deque<Work> dropped;
  {
    const std::scoped_lock lock(mutex_);
    closed_ = true;
    dropped.swap(posted_);
  }
  // Callbacks may hold registrations of this loop, so each goes while the loop still stands.
  dropped.clear();
  while (timers_.takeDue(TimePoint::max())) continue;
  const auto watches = std::move(watches_);
  watches_.clear();
}

void EpollLoop::run() {
  while (!stopped_) turn(true);
  stopped_ = false;
}

bool EpollLoop::dispatch() { return !inTurn_ && turn(false); }

TimePoint EpollLoop::now() const { return std::chrono::steady_clock::now(); }

WallTime EpollLoop::wallNow() const { return std::chrono::system_clock::now(); }

void EpollLoop::post(Work work) {
  const std::scoped_lock lock(mutex_);
  if (closed_) return;
  posted_.push_back(std::move(work));
  if (awake_ || signalled_) return;
  ::eventfd_write(wake_.get(), 1);
  signalled_ = true;
}

Timer EpollLoop::after(Duration delay, Work work) {
  const TimerQueue::Key key = timers_.add(now(), delay, std::move(work));
  if (!inTurn_) arm();
  return Timer([this, key] {
    timers_.cancel(key);
    if (!inTurn_) arm();
  });
}

Watch EpollLoop::watch(int fd, Interest interest, Ready ready) {
  const std::uint64_t id = nextWatch_++;
  epoll_event event{.events = 0, .data = {.u64 = id}};
  if (interest.read) event.events |= EPOLLIN;
  if (interest.write) event.events |= EPOLLOUT;
  if (interest.hangup) event.events |= EPOLLRDHUP;
  if (::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) != 0) {
    throw Failure::ofErrno(fmt::format("Could not watch descriptor {}", fd), errno);
  }
  watches_.emplace(id, std::make_shared<Watched>(fd, interest, std::move(ready)));
  return Watch([this, id] { unwatch(id); });
}

void EpollLoop::unwatch(std::uint64_t id) {
  const auto gone = watches_.extract(id);
  if (gone) ::epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, gone.mapped()->fd, nullptr);
}

bool EpollLoop::turn(bool wait) {
  inTurn_ = true;
  int ran = serveWatches(wait ? -1 : 0);
  turnEnd_ = now() + kBudgetTime;
  for (;;) {
    const int before = ran;
    ran += serveTimers();
    ran += servePosted();
    if (stopped_ || ran == before || ran >= kBudgetCallbacks || !workWaits() || now() >= turnEnd_) break;
    ran += serveWatches(0);
  }
  settle();
  inTurn_ = false;
  return ran > 0;
}

int EpollLoop::serveWatches(int wait) {
  epoll_event events[kBatch];
  const int count = ::epoll_wait(epoll_.get(), events, kBatch, wait);
  {
    const std::scoped_lock lock(mutex_);
    awake_ = true;
  }
  // The whole batch is served, whatever the time: the kernel gives the same descriptors in the same order
  // again, and those at the end would starve.
  int ran = 0;
  for (int i = 0; i < count && !stopped_; ++i) {
    const std::uint64_t id = events[i].data.u64;  // a copy: the kernel's record is packed
    const auto found = watches_.find(id);
    if (found == watches_.end()) continue;  // the timerfd, the eventfd, or a watch that was just reset
    const std::shared_ptr<Watched> watched = found->second;
    const std::uint32_t seen = events[i].events;
    const bool gone = (seen & (EPOLLHUP | EPOLLERR)) != 0;
    const bool half = (seen & EPOLLRDHUP) != 0;
    const Interest ready{.read = watched->asked.read && (gone || half || (seen & EPOLLIN) != 0),
                         .write = watched->asked.write && (gone || (seen & EPOLLOUT) != 0),
                         .hangup = gone || half};
    call(watched->ready, ready);
    ++ran;
  }
  return ran;
}

int EpollLoop::serveTimers() {
  int ran = 0;
  const TimePoint time = now();
  while (mayServe(ran)) {
    Work work = timers_.takeDue(time);
    if (!work) break;
    call(work);
    ++ran;
  }
  return ran;
}

int EpollLoop::servePosted() {
  int ran = 0;
  while (mayServe(ran)) {
    Work work;
    {
      const std::scoped_lock lock(mutex_);
      if (posted_.empty()) break;
      work = std::move(posted_.front());
      posted_.pop_front();
    }
    call(work);
    ++ran;
  }
  return ran;
}

// At least one of each kind, so that slow callbacks of one kind can't shut out another.
bool EpollLoop::mayServe(int ran) const {
  return !stopped_ && ran < kBatch && (ran == 0 || now() < turnEnd_);
}

bool EpollLoop::workWaits() {
  const auto next = timers_.next();
  if (next && *next <= now()) return true;
  const std::scoped_lock lock(mutex_);
  return !posted_.empty();
}

// Leaves the descriptors saying what is left to do: the eventfd readable exactly when work is posted, the
// timerfd set for the next timer.
void EpollLoop::settle() {
  arm();
  const std::scoped_lock lock(mutex_);
  awake_ = false;
  if (posted_.empty() == !signalled_) return;
  eventfd_t count;
  if (signalled_) {
    ::eventfd_read(wake_.get(), &count);
  } else {
    ::eventfd_write(wake_.get(), 1);
  }
  signalled_ = !signalled_;
}

// Setting the time again is also what makes a timerfd that has fired unreadable, so it is never read.
void EpollLoop::arm() {
  const TimePoint next = timers_.next().value_or(TimePoint::max());
  if (next == armed_) return;
  armed_ = next;
  itimerspec time{};
  if (next != TimePoint::max()) {
    // All zero would turn it off: an instant at or before the clock's start counts as its first nanosecond.
    const std::int64_t nanoseconds = std::max<std::int64_t>(1, next.time_since_epoch().count());
    time.it_value = {.tv_sec = nanoseconds / 1'000'000'000, .tv_nsec = nanoseconds % 1'000'000'000};
  }
  ::timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &time, nullptr);
}

}  // namespace ostrel
