// The preference stores of a Linux user: one JSON file for each domain, in one folder. The real
// `PreferenceDomains`.
//
// A change counts at once in memory. It is written a moment later on a thread of the store's own, together
// with what else changed meanwhile; `flush` and the destructor write what is left. What can't be written (a
// full disk) stays in memory and is tried again with the next change or flush; the old file stays whole.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Environment.h"
#include "Platform/PreferenceDomains.h"
#include "Runtime/Background.h"

namespace ostrel {

class PreferenceFiles final : public PreferenceDomains {
 public:
  // One line without its end, for instance "Could not write /home/x/...: No space left on device". Called on
  // the main thread or the store's own, once for a trouble that goes on.
  using Complain = std::function<void(std::string_view)>;

  // `delay` is how long a change waits for company.
  PreferenceFiles(std::filesystem::path folder, Complain complain,
                  Duration delay = std::chrono::milliseconds(200));
  ~PreferenceFiles() override;

  // "ostrel" in the user's folder for configuration.
  static std::filesystem::path folder(const Environment& environment);

  Preferences* open(std::string_view domain) override;
  PreferenceMap persistentDomain(std::string_view domain) override;
  void removePersistentDomain(std::string_view domain) override;
  void flush() override;

 private:
  class Store;

  std::filesystem::path file(std::string_view domain) const;
  void writeSoon();
  void writeAll();

  const std::filesystem::path folder_;
  const Complain complain_;
  const Duration delay_;

  std::mutex mutex_;
  std::condition_variable takenOver_;
  std::map<std::string, std::unique_ptr<Store>, std::less<>> stores_;  // only ever grows
  // The write that waits for company; a flush does its work, and it none.
  std::optional<std::uint64_t> scheduled_;
  std::uint64_t writes_ = 0;

  BackgroundPool writer_{1, std::chrono::seconds(1)};
};

}  // namespace ostrel
