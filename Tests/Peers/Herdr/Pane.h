// A pane: a program on a pseudo-terminal of its own, what its terminal shows, and what the agent in it
// reported. Main thread only.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include "Runtime/Json.h"
#include "Runtime/MainLoop.h"
#include "Runtime/UniqueFd.h"
#include "Screen.h"

namespace ostrel::standin {

class Pane {
 public:
  struct Program {
    std::vector<std::string> command;
    std::string folder;
    std::map<std::string, std::string> variables;  // on top of this program's own
  };
  struct Events {
    std::function<void(std::string_view)> output;
    std::function<void()> titled;  // the program set another title
    std::function<void()> exited;  // the program has ended; the pane may be destroyed from here
  };

  // Starts the program, 100 columns by 30 rows. Throws `Failure`.
  Pane(MainLoop& loop, std::string id, std::string terminal, const Program& program, Events events);
  Pane(const Pane&) = delete;
  Pane& operator=(const Pane&) = delete;
  // Kills the program and everything that it started on this terminal.
  ~Pane();

  // Types into the terminal.
  void type(std::string_view bytes);
  void resize(int columns, int rows);
  Screen& screen() { return screen_; }
  // What runs in the foreground: its process name, "" where there is none.
  std::string foregroundName() const;
  // The pane's row in `agent list`.
  Json row() const;

  const std::string id;
  std::string terminal;
  std::string workspace;
  // As reported; empty where nothing was.
  std::string agent, status, title, name, reference, referenceKind;

 private:
  void listen();
  void ready(Interest interest);
  void drain();
  void flush();
  std::string folderOf(pid_t process) const;
  pid_t foreground() const;

  MainLoop& loop_;
  Events events_;
  Screen screen_;
  pid_t pid_ = -1;
  UniqueFd master_;
  UniqueFd process_;
  std::string typed_;  // not yet taken by the terminal
  Watch terminalWatch_;
  Watch exitWatch_;
  Timer exitCall_;
};

}  // namespace ostrel::standin
