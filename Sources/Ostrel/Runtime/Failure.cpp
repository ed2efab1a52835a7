#include "Runtime/Failure.h"

#include <system_error>

#include <fmt/format.h>

namespace ostrel {

Failure Failure::ofErrno(std::string_view what, int error) {
  return Failure(fmt::format("{}: {}", what, std::generic_category().message(error)));
}

}  // namespace ostrel
