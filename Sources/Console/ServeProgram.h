// The program behind `ostrelctl serve`: a whole front end over standard input and output, one JSON object a
// line both ways. docs/SERVE.md has the protocol. Main thread; writing happens in the background, since a
// reader may be slow.
#pragma once

#include <array>
#include <bitset>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Client/HerdrClient.h"
#include "Platform/Preferences.h"
#include "Runtime/Background.h"
#include "Runtime/Json.h"
#include "Runtime/Task.h"

namespace ostrel::console {

class ServeProgram {
 public:
  struct Parts {
    MainLoop& loop;
    Background& writer;  // for `Output::write` alone, which may take for ever
    HerdrClient& client;
    const Preferences& preferences;
  };
  struct Output {
    // Writes to standard output, in the background; false when nobody reads any more.
    std::function<bool(std::string_view, const std::stop_token&)> write;
    // The program is over. Called once, on the main thread.
    std::function<void()> finished;
  };
  ServeProgram(Parts parts, Output output);

  // Restores the connection and begins to tell.
  void start();
  // One line of input. What can't be understood or done is answered, never fatal.
  void line(const std::string& text);
  // There will be no more lines.
  void inputEnded();

 private:
  using Operation = void (ServeProgram::*)(const Json&);

  void perform(const Json& request);
  void select(const Json& request);
  void deselect(const Json& request);
  void rename(const Json& request);
  void link(const Json& request);
  void answer(const Json& request);
  void openLink(const Json& request);
  void connect(const Json& request);
  void disconnect(const Json& request);
  void integrations(const Json& request);
  void quit(const Json& request);

  // What is told, each by an event of its own. One is made again after something that it shows has changed,
  // and sent when it differs from what was sent last.
  struct Topic {
    const char* event;
    Json (ServeProgram::*make)();
  };
  enum Which : std::size_t { agents, selected, transcript, output, setup, permissions, codex, kTopics };

  void follow();
  Task<void> run();
  Json agentsEvent();
  Json selectionEvent();
  Json transcriptEvent();
  Json outputEvent();
  Json integrationsEvent();
  Json permissionsEvent();
  Json codexEvent();
  Json openID() const;

  static const std::map<std::string, Operation, std::less<>> kOperations;
  static const std::array<Topic, kTopics> kTopicTable;

  Parts parts_;
  Output output_;
  WakeFlag changed_;
  std::vector<Subscription> subscriptions_;
  std::string replies_;  // lines to be written
  std::bitset<kTopics> stale_;
  std::array<std::string, kTopics> sent_;
  bool over_ = false;
  TaskScope tasks_;
};

}  // namespace ostrel::console
