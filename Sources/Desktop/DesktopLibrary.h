// Loads the windows. Main thread only.
#pragma once

#include <filesystem>

#include "Presentation/DesktopModule.h"

namespace ostrel {

class DesktopLibrary {
 public:
  // From beside `program`. Throws `Failure`. Once loaded it stays until the process ends.
  static const DesktopModule& beside(const std::filesystem::path& program);
  // Whether the environment names a display at all: a look that costs nothing.
  static bool hasDisplay(const Environment& environment);
};

}  // namespace ostrel
