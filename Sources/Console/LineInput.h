// Lines of standard input (or of any descriptor), each handed to the main thread. Reading has a thread of its
// own, since a descriptor may be a file, which a loop can't watch.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "Runtime/MainLoop.h"
#include "Runtime/UniqueFd.h"

namespace ostrel::console {

class LineInput {
 public:
  static constexpr std::size_t kLongest = 8'000'000;  // bytes; longer lines end the input

  // `line` gets each line without its newline, `ended` is called once after the last one; both on the main
  // thread. `fd` is not closed.
  LineInput(MainLoop& loop, int fd, std::function<void(std::string)> line, std::function<void()> ended);
  LineInput(const LineInput&) = delete;
  LineInput& operator=(const LineInput&) = delete;
  // Stops reading; nothing is called any more.
  ~LineInput();

 private:
  struct Receiver;
  void read(int fd);

  MainLoop& loop_;
  UniqueFd stop_;
  std::shared_ptr<Receiver> receiver_;
  std::jthread thread_;
};

}  // namespace ostrel::console
