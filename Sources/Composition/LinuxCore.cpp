#include "Composition/LinuxCore.h"

#include <unistd.h>
#include <utility>

#include "App/BundleInfo.h"
#include "Codex/CodexLive.h"
#include "Codex/CodexLocalServer.h"

namespace ostrel {

namespace {

// The launcher of the installation that this program is part of: the hook's command names it.
std::filesystem::path launcher(Processes& processes) {
  return std::filesystem::path(processes.executablePath(::getpid())).parent_path().parent_path() / "bin" /
         "Ostrel";
}

}  // namespace

LinuxCore::LinuxCore(Environment environment, std::function<void(std::string_view)> complain,
                     std::function<void(std::string_view)> announce, Face face)
    : environment_(std::move(environment)),
      tools_(environment_),
      hosts_(DesktopHostApplications::dataFolders(environment_), tools_.searchPath()),
      urls_({environment_, tools_.searchPath()}),
      transcripts_(environment_),
      titles_(transcripts_),
      externalAgents_({processes_,
                       hosts_,
                       transcripts_,
                       titles_,
                       environment_,
                       {},
                       std::move(announce),
                       &sockets_,
                       CodexLocalServer::socketPath(environment_),
                       &rollouts_}),
      preferenceFiles_(PreferenceFiles::folder(environment_), std::move(complain)),
      preferences_(preferenceFiles_, environment_.arguments,
                   BundleInfo::ofProgram(processes_.executablePath(::getpid())).identifier(), ::getpid()),
      exits_(loop_),
      files_(loop_),
      herdr_(tools_),
      untouched_(preferences_.shared()),
      reader_(transcripts_, pool_, [this](std::string thread) { return readThread(std::move(thread)); }),
      claudePermissions_(environment_, launcher(processes_), preferences_.shared()),
      hookFollower_({loop_, pool_, files_}, claudePermissions_, preferences_.shared(),
                    PreferenceFiles::folder(environment_)),
      client_({loop_, pool_, exits_, files_, face == Face::full ? preferences_.shared() : untouched_,
               servers_, herdr_, commandPool_},
              sources(face)) {}

// A Codex conversation as the running app server has it.
Task<AgentTranscriptSnapshot> LinuxCore::readThread(std::string thread) {
  co_return co_await pool_.run([socket = CodexLocalServer::socketPath(environment_),
                                thread = std::move(thread)](std::stop_token stop) {
    return CodexLocalServer::read(socket, thread, std::move(stop));
  });
}

HerdrClient::Sources LinuxCore::sources(Face face) {
  HerdrClient::Sources sources{
      .scanExternal = [this](std::stop_token stop) { return externalAgents_.scan(std::move(stop)); },
      .claudeSessions = environment_.claudeFolder() / "sessions",
      .toolEnvironment = tools_.environment(false),
      .transcripts = &reader_,
      .lookAtRollout = [this](const std::string& path) { return rollouts_.look(path); },
      .codexSessions = environment_.codexFolder() / "sessions",
      .codexServer = CodexLocalServer::socketPath(environment_),
      .followCodex = [socket = CodexLocalServer::socketPath(environment_)](
                         const auto& told,
                         std::stop_token stop) { CodexLive::follow(socket, told, std::move(stop)); },
      .fixture = preferences_.isFixture()};
  if (face == Face::full && !sources.fixture) {
    sources.permissionSocket = ClaudePermissions::socketPath(environment_);
    sources.codexSocket = CodexLocalServer::socketPath(environment_);
    sources.urls = &urls_;
    sources.hook = &hookFollower_;
  }
  return sources;
}

}  // namespace ostrel
