// A process that has Claude Code's name on a terminal of its own, with the session file that Claude Code
// would keep for it.
#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "Runtime/Files.h"
#include "Runtime/Json.h"
#include "Support/ChildProcess.h"

namespace ostrel {

class ClaudeStandIn {
 public:
  // `home` is a folder whose "claude" is Claude Code's own folder. `through` are words before the command, of
  // a program that runs it. Returns when it runs.
  ClaudeStandIn(std::filesystem::path home, const std::string& name, const std::string& session,
                const std::string& through = "")
      : home_(std::move(home)) {
    const auto program = home_ / name / "claude";
    const auto started = home_ / name / "started";
    std::filesystem::create_directories(program.parent_path());
    std::filesystem::create_directories(home_ / "claude/sessions");
    std::ofstream(program) << "#!/bin/sh\nread -r line </proc/self/stat\nset -- ${line##*) }\n"
                              "echo \"$$ ${20}\" >../"
                           << name << "/new\nmv ../" << name << "/new ../" << name
                           << "/started\nwhile sleep 100; do :; done\n";
    std::filesystem::permissions(program, std::filesystem::perms(0755));
    process_ = std::make_unique<ChildProcess>(
        std::vector<std::string>{
            "script", "-qc",
            fmt::format("cd '{}' && exec {} ./claude -p hello", program.parent_path().string(), through),
            "/dev/null"},
        ChildProcess::Variables{{"PATH", "/usr/bin:/bin"}, {"SHELL", "/bin/sh"}});
    for (int i = 0; i < 200 && !std::filesystem::exists(started); ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    std::ifstream told(started);
    int pid = 0;
    std::string ticks;
    told >> pid >> ticks;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    file_ = {{"pid", pid},
             {"sessionId", session},
             {"startedAt", std::chrono::duration_cast<std::chrono::milliseconds>(now).count()},
             {"procStart", ticks},
             {"entrypoint", "cli"}};
  }

  // Its session file, with this status; none for an empty one.
  void says(const std::string& status) {
    file_.erase("status");
    if (!status.empty()) file_["status"] = status;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    file_["statusUpdatedAt"] = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    files::replace(home_ / "claude/sessions" / (std::to_string(pid()) + ".json"), json::dump(file_));
  }
  // As the process knows itself.
  int pid() const { return file_["pid"].get<int>(); }
  Json& file() { return file_; }

 private:
  std::filesystem::path home_;
  std::unique_ptr<ChildProcess> process_;
  Json file_;
};

}  // namespace ostrel
