#include "Composition/LinuxCore.h"

#include <unistd.h>
#include <utility>

#include "App/BundleInfo.h"
#include "Herdr/HerdrCommand.h"
#include "Herdr/HerdrSocket.h"
#include "Runtime/Files.h"

namespace ostrel {

namespace {

HerdrLink::Doors herdr(const CommandLineTools& tools) {
  return {.run =
              [environment = tools.environment(false)](const std::filesystem::path& executable,
                                                       const std::vector<std::string>& arguments,
                                                       Duration limit, std::stop_token stop) {
                return HerdrCommand::run(executable, arguments, environment, limit, std::move(stop));
              },
          .events = HerdrSocket::events,
          .find = [&tools] { return tools.find("herdr"); },
          .isExecutable = [](const std::filesystem::path& path) { return files::isExecutable(path); }};
}

}  // namespace

LinuxCore::LinuxCore(Environment environment, std::function<void(std::string_view)> complain,
                     std::function<void(std::string_view)> announce, Settings settings)
    : environment_(std::move(environment)),
      tools_(environment_),
      hosts_(DesktopHostApplications::dataFolders(environment_), tools_.searchPath()),
      transcripts_(environment_),
      titles_(transcripts_),
      externalAgents_({processes_, hosts_, transcripts_, titles_, environment_, {}, std::move(announce)}),
      preferenceFiles_(PreferenceFiles::folder(environment_), std::move(complain)),
      preferences_(preferenceFiles_, environment_.arguments,
                   BundleInfo::ofProgram(processes_.executablePath(::getpid())).identifier(), ::getpid()),
      exits_(loop_),
      files_(loop_),
      untouched_(preferences_.shared()),
      client_({loop_, pool_, exits_, files_, settings == Settings::kept ? preferences_.shared() : untouched_,
               servers_},
              {.scanExternal = [this](std::stop_token stop) { return externalAgents_.scan(std::move(stop)); },
               .claudeSessions = environment_.claudeFolder() / "sessions",
               .herdr = herdr(tools_),
               .toolEnvironment = tools_.environment(false),
               .fixture = preferences_.isFixture()}) {}

}  // namespace ostrel
