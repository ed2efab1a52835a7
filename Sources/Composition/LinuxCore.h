// The core on Linux: every port with its real implementation, and the client on top. A composition root makes
// one.
#pragma once

#include <functional>
#include <string_view>

#include "App/OstrelPreferences.h"
#include "Claude/ClaudePermissions.h"
#include "Claude/HookFollower.h"
#include "Client/HerdrClient.h"
#include "Composition/InstalledHerdr.h"
#include "Conversations/AgentTranscriptReader.h"
#include "Conversations/ConversationTitle.h"
#include "Discovery/CommandLineTools.h"
#include "Discovery/ExternalAgents.h"
#include "Platform/Environment.h"
#include "Platform/Linux/DesktopHostApplications.h"
#include "Platform/Linux/DesktopOpeners.h"
#include "Platform/Linux/InotifyWatcher.h"
#include "Platform/Linux/NativeProcesses.h"
#include "Platform/Linux/PidfdExits.h"
#include "Platform/Linux/PreferenceFiles.h"
#include "Platform/Linux/SocketDiagnosis.h"
#include "Platform/Linux/SpawnedServers.h"
#include "Platform/OverlayPreferences.h"
#include "Runtime/Background.h"
#include "Runtime/EpollLoop.h"

namespace ostrel {

class LinuxCore {
 public:
  // A face that only looks changes no setting of the person's (what the client notes stays in memory), and
  // leaves Claude Code's prompts and settings alone.
  enum class Face { full, looks };

  // `complain` gets the one-line reports that can't be shown elsewhere, such as a preference file that was
  // set aside; `announce` the line of the discovery self-check, where the arguments ask for it. Throws
  // `Failure` when the kernel lacks descriptors for a main loop.
  LinuxCore(Environment environment, std::function<void(std::string_view)> complain,
            std::function<void(std::string_view)> announce, Face face = Face::full);
  LinuxCore(const LinuxCore&) = delete;
  LinuxCore& operator=(const LinuxCore&) = delete;

  const Environment& environment() const { return environment_; }
  const CommandLineTools& tools() const { return tools_; }
  EpollLoop& loop() { return loop_; }
  // Scans, files, sockets of our own: what answers soon.
  Background& pool() { return pool_; }
  // Programs of others, which may hang for as long as they are given.
  Background& toolPool() { return toolPool_; }
  NativeProcesses& processes() { return processes_; }
  AgentTranscript& transcripts() { return transcripts_; }
  ExternalAgents& externalAgents() { return externalAgents_; }
  OstrelPreferences& preferences() { return preferences_; }
  HerdrClient& client() { return client_; }
  UrlOpener& urls() { return urls_; }
  ClaudePermissions& claudePermissions() { return claudePermissions_; }

 private:
  HerdrClient::Sources sources(Face face);
  Task<AgentTranscriptSnapshot> readThread(std::string thread);

  // Order matters: what background work uses stands before the pool, whose destruction waits for that work.
  const Environment environment_;
  const CommandLineTools tools_;
  EpollLoop loop_;
  NativeProcesses processes_;
  SocketDiagnosis sockets_;
  DesktopHostApplications hosts_;
  DesktopUrls urls_;
  AgentTranscript transcripts_;
  ConversationTitles titles_;
  CodexRollouts rollouts_;
  ExternalAgents externalAgents_;
  PreferenceFiles preferenceFiles_;
  OstrelPreferences preferences_;
  BackgroundPool pool_;
  BackgroundPool toolPool_{4};
  BackgroundPool commandPool_{4, std::chrono::seconds(1)};
  PidfdExits exits_;
  InotifyWatcher files_;
  SpawnedServers servers_;
  InstalledHerdr herdr_;
  OverlayPreferences untouched_;
  AgentTranscriptReader reader_;
  ClaudePermissions claudePermissions_;
  HookFollower hookFollower_;
  HerdrClient client_;
};

}  // namespace ostrel
