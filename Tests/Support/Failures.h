// What a call says when it fails.
#pragma once

#include <string>

#include "Runtime/Failure.h"

namespace ostrel {

// The words of the failure that `work` throws.
template <class Work>
std::string failureOf(Work work) {
  try {
    work();
  } catch (const Failure& failure) {
    return failure.message();
  }
  return "(no failure)";
}

}  // namespace ostrel
