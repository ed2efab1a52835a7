// What throwing operations throw, and the signal of cancellation.
//
// A failure carries words meant for the user: views show them as they stand. Neither type may leave a thread
// or reach a foreign event loop: `BackgroundPool` carries a failure to the awaiting task, and a task's owner
// catches it there.
#pragma once

#include <exception>
#include <string>
#include <string_view>
#include <utility>

namespace ostrel {

class Failure : public std::exception {
 public:
  explicit Failure(std::string message) : message_(std::move(message)) {}

  static constexpr std::string_view domain() { return "Ostrel.Herdr"; }
  static constexpr int code() { return 1; }
  const std::string& message() const noexcept { return message_; }
  const char* what() const noexcept override { return message_.c_str(); }
  bool operator==(const Failure& other) const { return message_ == other.message_; }

  // The words of a failed system call, for instance "Could not open /x: Permission denied".
  static Failure ofErrno(std::string_view what, int error);

 private:
  std::string message_;
};

// Thrown by an awaited call of a cancelled task, and by long background work that noticed its stop token.
// Not a failure: nobody reports it.
class Cancelled final : public std::exception {
 public:
  const char* what() const noexcept override { return "cancelled"; }
};

}  // namespace ostrel
