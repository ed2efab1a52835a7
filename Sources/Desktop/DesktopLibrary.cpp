#include "DesktopLibrary.h"

#include <dlfcn.h>
#include <string>

#include <fmt/format.h>

#include "Runtime/Failure.h"

namespace ostrel {

const DesktopModule& DesktopLibrary::beside(const std::filesystem::path& program) {
  const std::string path = (program.parent_path() / "libostrel-windows.so").string();
  void* const library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  void* const function = library ? ::dlsym(library, kDesktopModule) : nullptr;
  if (!function) {
    const char* const reason = ::dlerror();
    throw Failure(fmt::format("the windows could not be loaded: {}", reason ? reason : path));
  }
  return *reinterpret_cast<DesktopModuleFunction*>(function)();
}

bool DesktopLibrary::hasDisplay(const Environment& environment) {
  // Windows at a place of their own need an X server. One that Wayland starts at need counts.
  return !environment.variable("DISPLAY").value_or("").empty();
}

}  // namespace ostrel
