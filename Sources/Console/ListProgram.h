// The program behind `ostrelctl agents` and `ostrelctl watch`: waits for its sources and prints the list when
// it changed. Main thread; looking up transcripts and writing happen in the background, since a reader may be
// slow.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "Client/HerdrClient.h"
#include "Conversations/AgentTranscript.h"
#include "Listing.h"
#include "Options.h"
#include "Platform/Preferences.h"
#include "Runtime/Background.h"
#include "Runtime/Task.h"

namespace ostrel::console {

class ListProgram {
 public:
  struct Parts {
    MainLoop& loop;
    Background& pool;    // looks at files
    Background& writer;  // for `Output::write` alone, which may take for ever
    HerdrClient& client;
    AgentTranscript& transcripts;
    const Preferences& preferences;
  };
  struct Output {
    // Writes to standard output, in the background; false when nobody reads any more.
    std::function<bool(std::string_view, const std::stop_token&)> write;
    // One line for the person, on standard error.
    std::function<void(std::string_view)> complain;
    // The program is over, with this exit status. Called once, on the main thread.
    std::function<void(int)> finished;
    bool columns = false;  // standard output is a terminal
  };
  ListProgram(Parts parts, Options options, Output output);

  // Starts discovery, joins Herdr where it is installed and the person has not left it, and prints what
  // `options` asks for.
  void start();

 private:
  Task<void> run();
  Listing current();
  bool ready();
  void finish(int status);

  Parts parts_;
  Options options_;
  Output output_;
  WakeFlag changed_;
  Subscription deliveries_;
  Subscription reports_;
  Timer deadline_;
  bool late_ = false;  // Herdr has used up the time for a first list
  bool over_ = false;
  TaskScope tasks_;
};

}  // namespace ostrel::console
