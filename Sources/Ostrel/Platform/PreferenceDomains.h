// Where preference stores come from, as a port: one store for each named domain of the user's. Main thread
// only.
#pragma once

#include <string_view>

#include "Platform/Preferences.h"

namespace ostrel {

class PreferenceDomains {
 public:
  PreferenceDomains() = default;
  PreferenceDomains(const PreferenceDomains&) = delete;
  PreferenceDomains& operator=(const PreferenceDomains&) = delete;
  virtual ~PreferenceDomains() = default;

  // The store of a domain, read at the first call; the same one at every call, alive as long as this object.
  // Null for a name that can't be a domain's. One that can't be read or written still works in memory.
  virtual Preferences* open(std::string_view domain) = 0;

  // What a domain holds, without opening it; empty when it is missing. Registered defaults are no part of it.
  virtual PreferenceMap persistentDomain(std::string_view domain) = 0;

  // Removes a domain and all it holds, in an open store too.
  virtual void removePersistentDomain(std::string_view domain) = 0;

  // Waits until everything set so far is stored, or could not be.
  virtual void flush() = 0;
};

}  // namespace ostrel
