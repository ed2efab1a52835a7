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
    std::function<void()> titled;  // the program set another title
    std::function<void()> exited;  // the program has ended; the pane may be destroyed from here
  };

  // Starts the program, 100 columns by 30 rows. Throws `Failure`.
  Pane(MainLoop& loop, std::string id, std::string terminal, const Program& program, Events events);
  // The terminal and its program as another server left them.
  Pane(MainLoop& loop, const Json& saved, Events events);
  Pane(const Pane&) = delete;
  Pane& operator=(const Pane&) = delete;
  // Kills the program and everything that it started on this terminal.
  ~Pane();

  // Types into the terminal.
  void type(std::string_view bytes);
  Screen& screen() { return screen_; }
  // The pane's row in `agent list`.
  Json row() const;

  // For the server that takes this pane over: what its constructor needs, and the terminal's descriptor,
  // whose number stands in it.
  Json saved() const;
  int master() const { return master_.get(); }
  // Nothing is killed any more.
  void leave() { pid_ = -1; }

  const std::string id;
  std::string terminal;
  std::string workspace = "w1";
  int stateChanges = 0;
  // As reported; empty where nothing was.
  std::string agent, status, title, reference, referenceKind;

 private:
  void follow();
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
