#include "Composition/LinuxCore.h"

#include <unistd.h>
#include <utility>

#include "App/BundleInfo.h"

namespace ostrel {

LinuxCore::LinuxCore(Environment environment, std::function<void(std::string_view)> complain,
                     std::function<void(std::string_view)> announce)
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
      client_(
          {loop_, pool_, exits_, files_},
          [this](std::stop_token stop) { return externalAgents_.scan(std::move(stop)); },
          environment_.claudeFolder() / "sessions") {}

}  // namespace ostrel
