#include "Runtime/Published.h"

namespace ostrel {

void ChangeSignal::Slots::removeDead() {
  if (notifying > 0) return;
  // What an observer captured goes when the list is whole again: its destructor may come back to it.
  std::vector<std::shared_ptr<Slot>> dead;
  for (auto& slot : list) {
    if (!slot->live) dead.push_back(slot);
  }
  if (!dead.empty()) std::erase_if(list, [](const auto& slot) { return !slot->live; });
}

Subscription ChangeSignal::observe(Observer observer) const {
  const auto slot = std::make_shared<Slot>(std::move(observer));
  slots_->list.push_back(slot);
  return Subscription([slots = std::weak_ptr(slots_), slot = std::weak_ptr(slot)] {
    const auto kept = slots.lock();
    const auto gone = slot.lock();
    if (!gone) return;
    gone->live = false;
    if (kept) kept->removeDead();
  });
}

void ChangeSignal::notify() {
  const auto slots = slots_;  // an observer may destroy this signal
  const std::size_t count = slots->list.size();
  ++slots->notifying;
  for (std::size_t i = 0; i < count; ++i) {
    const auto slot = slots->list[i];
    if (slot->live) slot->observer();
  }
  --slots->notifying;
  slots->removeDead();
}

Throttle::Throttle(MainLoop& loop, Duration interval, MainLoop::Work work)
    : loop_(loop), interval_(interval), work_(std::make_shared<MainLoop::Work>(std::move(work))) {}

void Throttle::request() {
  if (timer_) return;
  const TimePoint now = loop_.now();
  timer_ = loop_.after(next_ > now ? next_ - now : Duration::zero(), [this] { run(); });
}

void Throttle::run() {
  timer_.reset();
  next_ = loop_.now() + interval_;
  const auto work = work_;
  (*work)();
}

}  // namespace ostrel
