// A pipe that never blocks, for tests of what watches descriptors.
#pragma once

#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

#include "Runtime/UniqueFd.h"

namespace ostrel {

struct Pipe {
  UniqueFd reader, writer;
  Pipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) throw std::runtime_error("no pipe");
    reader.reset(ends[0]);
    writer.reset(ends[1]);
  }
  void write() {
    if (::write(writer.get(), "x", 1) != 1) throw std::runtime_error("a full pipe");
  }
  void drain() {
    char bytes[64];
    while (::read(reader.get(), bytes, sizeof bytes) > 0) continue;
  }
};

}  // namespace ostrel
