// A running `ostrelctl serve` that a test talks to.
#pragma once

#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "Runtime/Json.h"
#include "Runtime/UniqueFd.h"
#include "Support/ChildProcess.h"

namespace ostrel {

class Serving {
 public:
  // `folder` takes the pipe of its input.
  Serving(const std::string& ostrelctl, const ChildProcess::Variables& variables,
          const std::filesystem::path& folder)
      : input_(pipe(folder / "serve-input")),
        process_({"/bin/sh", "-c", "exec \"$0\" serve <\"$1\"", ostrelctl, (folder / "serve-input").string()},
                 variables) {}

  void send(const Json& operation) {
    const std::string line = json::dump(operation) + "\n";
    [[maybe_unused]] const auto written = ::write(input_.get(), line.data(), line.size());
  }
  // Reads on until the latest event of this name fits; null when `limit` passes first.
  Json until(const std::string& event, const std::function<bool(const Json&)>& fits,
             std::chrono::milliseconds limit = std::chrono::seconds(40)) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + limit;
    for (;;) {
      if (const auto last = latest_.find(event); last != latest_.end() && fits(last->second))
        return last->second;
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
      const auto line = left.count() > 0 ? process_.line(left) : std::nullopt;
      const auto parsed = line ? json::parse(*line) : std::nullopt;
      if (!parsed) return nullptr;
      latest_[json::string(*parsed, "event").value_or("")] = *parsed;
    }
  }
  // The reply to an operation.
  Json perform(Json operation) {
    operation["id"] = ++operations_;
    send(operation);
    return until("reply", [&](const Json& reply) { return reply["id"] == operations_; });
  }
  // Ends the input; what the program ends with.
  ChildProcess::Finished finish() {
    send({{"op", "quit"}});
    return process_.finish();
  }
  ChildProcess& process() { return process_; }

 private:
  static UniqueFd pipe(const std::filesystem::path& path) {
    ::mkfifo(path.c_str(), 0600);
    return UniqueFd(::open(path.c_str(), O_RDWR | O_CLOEXEC));
  }

  UniqueFd input_;
  ChildProcess process_;
  std::map<std::string, Json> latest_;
  int operations_ = 0;
};

}  // namespace ostrel
