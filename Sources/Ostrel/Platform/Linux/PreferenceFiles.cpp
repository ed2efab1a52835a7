#include "Platform/Linux/PreferenceFiles.h"

#include <algorithm>
#include <exception>
#include <utility>
#include <vector>

#include "Platform/Linux/PreferenceFile.h"
#include "Runtime/Failure.h"

namespace ostrel {

namespace fs = std::filesystem;

class PreferenceFiles::Store final : public Preferences {
 public:
  Store(PreferenceFiles& owner, const fs::path& path) : owner_(owner), file_(path, owner.complain_) {
    try {
      values_ = file_.read();
    } catch (const std::exception& failure) {
      complainOnce(failure);
    }
  }

  std::optional<Json> object(std::string_view key) const override {
    {
      const std::scoped_lock lock(mutex_);
      if (const auto found = values_.find(key); found != values_.end()) return found->second;
    }
    const auto fallback = defaults_.find(key);
    if (fallback == defaults_.end()) return std::nullopt;
    return fallback->second;
  }

  void set(std::string_view key, Json value) override {
    if (value.is_null()) return remove(key);
    {
      const std::scoped_lock lock(mutex_);
      values_.insert_or_assign(std::string(key), value);
      changes_.insert_or_assign(std::string(key), std::move(value));
    }
    owner_.writeSoon();
  }

  void remove(std::string_view key) override {
    {
      const std::scoped_lock lock(mutex_);
      if (const auto found = values_.find(key); found != values_.end()) values_.erase(found);
      changes_.insert_or_assign(std::string(key), std::nullopt);
    }
    owner_.writeSoon();
  }

  void registerDefaults(const PreferenceMap& defaults) override {
    for (const auto& [key, value] : defaults) defaults_.insert_or_assign(key, value);
  }

  PreferenceMap values() const {
    const std::scoped_lock lock(mutex_);
    return values_;
  }

  // Any thread.
  void write() {
    const std::scoped_lock oneAtATime(writing_);
    PreferenceChanges writing;
    PreferenceMap known;
    {
      const std::scoped_lock lock(mutex_);
      if (changes_.empty()) return;
      writing.swap(changes_);
      known = values_;
    }
    try {
      PreferenceMap written = file_.write(writing, known);
      const std::scoped_lock lock(mutex_);
      // What other programs changed counts here too, below what was set meanwhile.
      values_ = std::move(written);
      applyChanges(values_, changes_);
      complained_ = false;
    } catch (const std::exception& failure) {
      {
        const std::scoped_lock lock(mutex_);
        changes_.merge(writing);  // newer changes of the same keys stay
      }
      complainOnce(failure);
    }
  }

  void reread() override {
    const std::scoped_lock oneAtATime(writing_);
    try {
      PreferenceMap stored = file_.read();
      const std::scoped_lock lock(mutex_);
      values_ = std::move(stored);
      applyChanges(values_, changes_);
    } catch (const std::exception& failure) {
      complainOnce(failure);
    }
  }

  void removeAll() {
    const std::scoped_lock oneAtATime(writing_);
    {
      const std::scoped_lock lock(mutex_);
      values_.clear();
      changes_.clear();
    }
    file_.remove();
  }

 private:
  void complainOnce(const std::exception& failure) {
    if (!std::exchange(complained_, true)) owner_.complain_(failure.what());
  }

  PreferenceFiles& owner_;
  PreferenceFile file_;
  PreferenceMap defaults_;  // main thread only

  mutable std::mutex mutex_;
  PreferenceMap values_;
  PreferenceChanges changes_;  // not written yet

  std::mutex writing_;  // held for a whole write
  bool complained_ = false;
};

PreferenceFiles::PreferenceFiles(fs::path folder, Complain complain, Duration delay)
    : folder_(std::move(folder)), complain_(std::move(complain)), delay_(delay) {}

PreferenceFiles::~PreferenceFiles() { flush(); }

fs::path PreferenceFiles::folder(const Environment& environment) {
  return environment.folder("XDG_CONFIG_HOME", ".config") / "ostrel";
}

fs::path PreferenceFiles::file(std::string_view domain) const {
  return folder_ / (std::string(domain) + ".json");
}

Preferences* PreferenceFiles::open(std::string_view domain) {
  const bool named = !domain.empty() && !domain.starts_with('.') && domain.size() <= 200 &&
                     std::ranges::none_of(domain, [](char c) { return c == '/' || c == '\0'; });
  if (!named) return nullptr;
  if (const auto known = stores_.find(domain); known != stores_.end()) return known->second.get();
  auto store = std::make_unique<Store>(*this, file(domain));
  const std::scoped_lock lock(mutex_);
  return stores_.emplace(domain, std::move(store)).first->second.get();
}

PreferenceMap PreferenceFiles::persistentDomain(std::string_view domain) {
  if (const auto known = stores_.find(domain); known != stores_.end()) return known->second->values();
  try {
    return PreferenceFile(file(domain), complain_).read();
  } catch (const std::exception& failure) {
    complain_(failure.what());
    return {};
  }
}

void PreferenceFiles::removePersistentDomain(std::string_view domain) {
  try {
    if (const auto known = stores_.find(domain); known != stores_.end()) {
      known->second->removeAll();
    } else {
      PreferenceFile(file(domain), complain_).remove();
    }
  } catch (const std::exception& failure) {
    complain_(failure.what());
  }
}

void PreferenceFiles::flush() {
  {
    const std::scoped_lock lock(mutex_);
    scheduled_.reset();
    takenOver_.notify_all();
  }
  writeAll();
}

void PreferenceFiles::writeSoon() {
  std::uint64_t mine = 0;
  {
    const std::scoped_lock lock(mutex_);
    if (scheduled_) return;
    scheduled_ = mine = ++writes_;
  }
  try {
    writer_.submit([this, mine] {
      {
        std::unique_lock lock(mutex_);
        const bool flushed = takenOver_.wait_for(lock, delay_, [&] { return scheduled_ != mine; });
        if (flushed) return;
        scheduled_.reset();
      }
      writeAll();
    });
  } catch (const Failure&) {
    // No thread to be had now: the next change or flush tries again.
    const std::scoped_lock lock(mutex_);
    scheduled_.reset();
  }
}

void PreferenceFiles::writeAll() {
  std::vector<Store*> stores;
  {
    const std::scoped_lock lock(mutex_);
    for (const auto& [name, store] : stores_) stores.push_back(store.get());
  }
  for (Store* store : stores) store->write();
}

}  // namespace ostrel
