// Keeps the states of Codex agents without an app server right between two scans: the files of their
// conversations are watched, and a line costs its own bytes. Main thread only; reading is background work.
//
// Takes the list of a scan and gives the same list with the states as they are now.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "Discovery/CodexRollout.h"
#include "Platform/FileWatcher.h"
#include "Runtime/Background.h"
#include "Runtime/Published.h"
#include "Runtime/Task.h"

namespace ostrel {

class CodexRolloutLights {
 public:
  struct Sources {
    FileWatcher& files;
    // What the conversation in a file does; blocks. None: the list is passed on as it is.
    std::function<std::optional<CodexTurn>(const std::string& path)> look;
    std::filesystem::path sessions;  // the folder in which Codex keeps its conversations, by date
    std::function<void()> rescan;    // a scan is wanted: a conversation has got its file
  };
  // `scanned` outlives this.
  CodexRolloutLights(MainLoop& loop, Background& pool, Sources sources,
                     Published<std::vector<HerdrAgent>>& scanned);

  Published<std::vector<HerdrAgent>>& agents() { return agents_; }

 private:
  void scannedAgain();
  void watchFolders();
  // The deepest existing folder for today's conversations.
  void watchForFiles();
  Task<void> run();
  void publish();

  MainLoop& loop_;
  Background& pool_;
  Sources sources_;
  Published<std::vector<HerdrAgent>>& scanned_;
  Published<std::vector<HerdrAgent>> agents_;
  std::map<std::string, std::optional<CodexTurn>> turns_;  // by path; those of the last scan
  std::map<std::string, Registration> folders_;
  std::set<std::string> changed_;  // paths to be looked at
  std::string awaitedFolder_;
  Registration fileWatch_;
  WakeFlag wake_;
  Subscription subscription_;
  TaskScope tasks_;
};

}  // namespace ostrel
