#include "Support/VirtualLoop.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <vector>

#include <fmt/format.h>

#include "Runtime/Failure.h"

namespace ostrel {

namespace {

constexpr std::uint64_t kMostCallbacks = 200'000;  // of one call of a test

const std::function<bool()> kNever = [] { return false; };

template <class Callback, class... Arguments>
void call(Callback& callback, Arguments... arguments) noexcept {
  callback(arguments...);
}

}  // namespace

VirtualLoop::VirtualLoop()
    : now_(std::chrono::hours(1)),
      wall_(std::chrono::seconds(1767323045)),
      wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

VirtualLoop::~VirtualLoop() {
  std::deque<Work> dropped;
  {
    const std::scoped_lock lock(mutex_);
    closed_ = true;
    dropped.swap(posted_);
  }
  dropped.clear();
  while (timers_.takeDue(TimePoint::max())) continue;
  const auto watches = std::move(watches_);
  watches_.clear();
}

void VirtualLoop::post(Work work) {
  const std::scoped_lock lock(mutex_);
  if (closed_) return;
  posted_.push_back(std::move(work));
  ::eventfd_write(wake_.get(), 1);
}

Timer VirtualLoop::after(Duration delay, Work work) {
  const TimerQueue::Key key = timers_.add(now_, delay, std::move(work));
  return Timer([this, key] { timers_.cancel(key); });
}

Watch VirtualLoop::watch(int fd, Interest interest, Ready ready) {
  // What epoll would say.
  struct stat info;
  int error = ::fstat(fd, &info) == 0 ? 0 : errno;
  if (error == 0 && (S_ISREG(info.st_mode) || S_ISDIR(info.st_mode))) error = EPERM;
  for (const auto& [id, watched] : watches_) {
    if (watched->fd == fd && error == 0) error = EEXIST;
  }
  if (error != 0) throw Failure::ofErrno(fmt::format("Could not watch descriptor {}", fd), error);
  const std::uint64_t id = nextWatch_++;
  watches_.emplace(id, std::make_shared<Watched>(fd, interest, std::move(ready)));
  return Watch([this, id] { const auto gone = watches_.extract(id); });
}

void VirtualLoop::runUntilIdle() {
  served_ = 0;
  while (serveRound(kNever)) continue;
}

bool VirtualLoop::step() {
  served_ = 0;
  return serveRound([this] { return served_ > 0; });
}

void VirtualLoop::runFor(Duration duration) {
  const TimePoint end = now_ + duration;
  runUntil(kNever, duration);
  if (now_ < end) advance(end - now_);
}

bool VirtualLoop::runUntil(const std::function<bool()>& done, Duration limit) {
  const TimePoint end = now_ + limit;
  served_ = 0;
  while (!done()) {
    if (serveRound(done)) continue;
    const auto next = timers_.next();
    if (!next || *next > end) break;
    advance(*next - now_);
  }
  return done();
}

void VirtualLoop::advance(Duration duration) {
  now_ += duration;
  wall_ += duration;
}

bool VirtualLoop::waitUntil(const std::function<bool()>& done, Duration limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  served_ = 0;
  while (!done()) {
    if (serveRound(done)) continue;
    const auto left = end - std::chrono::steady_clock::now();
    if (left <= Duration::zero()) break;
    // Short, because `done` may look at what another thread sets without posting.
    serveWatches(5, done);
  }
  return done();
}

// What is posted now, one pass over the descriptors, one timer; true when something ran. Ends early when
// `done`.
bool VirtualLoop::serveRound(const std::function<bool()>& done) {
  const bool posted = servePosted(done);
  const bool watches = serveWatches(0, done);
  const bool timer = !done() && serveTimer();
  return posted || watches || timer;
}

bool VirtualLoop::servePosted(const std::function<bool()>& done) {
  std::size_t waiting;
  {
    const std::scoped_lock lock(mutex_);
    eventfd_t count;
    waiting = posted_.size();
    if (waiting == 0) ::eventfd_read(wake_.get(), &count);
  }
  bool ran = false;
  for (; waiting > 0 && !done(); --waiting) {
    Work work;
    {
      const std::scoped_lock lock(mutex_);
      if (posted_.empty()) break;  // `done` or a callback has run the loop itself
      work = std::move(posted_.front());
      posted_.pop_front();
    }
    countCallback();
    call(work);
    ran = true;
  }
  return ran;
}

bool VirtualLoop::serveWatches(int milliseconds, const std::function<bool()>& done) {
  std::vector<pollfd> polled{{.fd = wake_.get(), .events = POLLIN, .revents = 0}};
  std::vector<std::uint64_t> ids{0};
  for (const auto& [id, watched] : watches_) {
    short events = 0;
    if (watched->asked.read) events |= POLLIN;
    if (watched->asked.write) events |= POLLOUT;
    if (watched->asked.hangup) events |= POLLRDHUP;
    polled.push_back({.fd = watched->fd, .events = events, .revents = 0});
    ids.push_back(id);
  }
  if (::poll(polled.data(), polled.size(), milliseconds) <= 0) return false;
  bool ran = false;
  for (std::size_t i = 1; i < polled.size() && !done(); ++i) {
    const auto found = watches_.find(ids[i]);
    if (found == watches_.end() || polled[i].revents == 0) continue;
    const auto watched = found->second;
    const int seen = polled[i].revents;
    const bool gone = (seen & (POLLHUP | POLLERR | POLLNVAL)) != 0;
    const bool half = (seen & POLLRDHUP) != 0;
    countCallback();
    const Interest ready{.read = watched->asked.read && (gone || half || (seen & POLLIN) != 0),
                         .write = watched->asked.write && (gone || (seen & POLLOUT) != 0),
                         .hangup = gone || half};
    call(watched->ready, ready);
    ran = true;
  }
  return ran;
}

bool VirtualLoop::serveTimer() {
  Work work = timers_.takeDue(now_);
  if (!work) return false;
  countCallback();
  call(work);
  return true;
}

void VirtualLoop::countCallback() {
  if (++served_ > kMostCallbacks) throw std::logic_error("VirtualLoop: never idle");
}

}  // namespace ostrel
