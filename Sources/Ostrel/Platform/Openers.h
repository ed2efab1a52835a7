// What the program hands to other programs of the desktop, as ports. Both block: background work.
#pragma once

#include <filesystem>
#include <string>

namespace ostrel {

class UrlOpener {
 public:
  UrlOpener() = default;
  UrlOpener(const UrlOpener&) = delete;
  UrlOpener& operator=(const UrlOpener&) = delete;
  virtual ~UrlOpener() = default;

  // Opens the address in the person's browser. Throws `Failure`.
  virtual void open(const std::string& url) = 0;
};

class TerminalOpener {
 public:
  TerminalOpener() = default;
  TerminalOpener(const TerminalOpener&) = delete;
  TerminalOpener& operator=(const TerminalOpener&) = delete;
  virtual ~TerminalOpener() = default;

  // Runs the script in a new window of the person's terminal program, which outlives ours. Throws `Failure`
  // when there is none or it can't be started.
  virtual void open(const std::filesystem::path& script) = 0;
};

}  // namespace ostrel
