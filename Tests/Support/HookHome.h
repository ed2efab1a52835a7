// A home in which hooks find a serving program, and nothing of this machine's is touched.
#pragma once

#include <memory>
#include <string>

#include "Runtime/Json.h"
#include "Support/ChildProcess.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {

struct HookHome {
  TemporaryFolder home;
  ChildProcess::Variables variables = {{"HOME", home.path().string()},
                                       {"PATH", "/usr/bin:/bin"},
                                       {"CLAUDE_CONFIG_DIR", (home.path() / "claude").string()}};

  int asked = 0;

  // A hook of Claude Code that asks this.
  std::unique_ptr<ChildProcess> ask(const Json& question) {
    const auto file = home.write("question-" + std::to_string(++asked), json::dump(question));
    return std::make_unique<ChildProcess>(
        std::vector<std::string>{"/bin/sh", "-c", "'" OSTREL_BIN_DIR "/Ostrel' --permission-hook < \"$0\"",
                                 file.string()},
        variables);
  }
};

}  // namespace ostrel
