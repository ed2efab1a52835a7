#include "Client/CodexRolloutLights.h"

#include <ctime>
#include <utility>

#include <fmt/format.h>

namespace ostrel {

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

// Lets the lines of one moment fold into one look.
constexpr Duration kSettling = 20ms;

bool readsRollout(const HerdrAgent& agent) {
  return agent.tellsState && agent.provider == "codex" && agent.transcriptKind == "path" &&
         agent.transcriptReference;
}

// It may get a file of its own with its first turn.
bool awaitsFile(const HerdrAgent& agent) {
  return agent.codexTie && !agent.transcriptReference && agent.codexTie->client != true;
}

}  // namespace

CodexRolloutLights::CodexRolloutLights(MainLoop& loop, Background& pool, Sources sources,
                                       Published<std::vector<HerdrAgent>>& scanned)
    : loop_(loop), pool_(pool), sources_(std::move(sources)), scanned_(scanned), tasks_(loop) {
  subscription_ = scanned.observe([this] { scannedAgain(); });
  if (sources_.look) tasks_.start(run());
}

void CodexRolloutLights::scannedAgain() {
  std::map<std::string, std::optional<CodexTurn>> turns;
  bool awaits = false;
  for (const HerdrAgent& agent : *scanned_) {
    awaits |= awaitsFile(agent);
    if (!readsRollout(agent)) continue;
    const std::string& path = *agent.transcriptReference;
    // What was read before may be older or newer than the scan: the look that follows tells.
    const auto known = turns_.find(path);
    turns[path] = known == turns_.end() ? std::nullopt : known->second;
    changed_.insert(path);
  }
  turns_ = std::move(turns);
  if (sources_.look) {
    watchFolders();
    if (awaits) {
      watchForFiles();
    } else {
      fileWatch_.reset();
      awaitedFolder_.clear();
    }
    if (!changed_.empty()) wake_.raise();
  }
  publish();
}

void CodexRolloutLights::watchFolders() {
  std::set<std::string> wanted;
  for (const auto& [path, turn] : turns_) wanted.insert(fs::path(path).parent_path());
  std::erase_if(folders_, [&](const auto& entry) { return !wanted.contains(entry.first); });
  for (const std::string& folder : wanted) {
    Registration& watch = folders_[folder];
    if (watch) continue;
    watch = sources_.files.watchFolder(folder, [this, folder](std::string_view name) {
      if (name.empty()) folders_[folder].reset();
      const std::string path = (fs::path(folder) / name).string();
      if (!name.empty() && !turns_.contains(path)) return;
      for (const auto& [each, turn] : turns_) {
        if (name.empty() || each == path) changed_.insert(each);
      }
      wake_.raise();
    });
  }
}

void CodexRolloutLights::watchForFiles() {
  const std::time_t now = std::chrono::system_clock::to_time_t(
      std::chrono::time_point_cast<std::chrono::system_clock::duration>(loop_.wallNow()));
  std::tm today{};
  ::localtime_r(&now, &today);
  const fs::path year = sources_.sessions / fmt::format("{}", today.tm_year + 1900);
  const fs::path month = year / fmt::format("{:02}", today.tm_mon + 1);
  const fs::path day = month / fmt::format("{:02}", today.tm_mday);
  for (const fs::path& folder : {day, month, year, sources_.sessions, sources_.sessions.parent_path()}) {
    if (fileWatch_ && awaitedFolder_ == folder) return;
    Registration watch = sources_.files.watchFolder(folder, [this, folder, day](std::string_view name) {
      // In the last folder each line of a conversation tells; only a new one is news.
      if (folder == day && !name.empty() && turns_.contains((folder / name).string())) return;
      if (folder != day && !name.empty() && !std::string_view(day.native()).contains(name)) return;
      if (name.empty()) fileWatch_.reset();
      sources_.rescan();
    });
    if (!watch) continue;
    fileWatch_ = std::move(watch);
    awaitedFolder_ = folder;
    return;
  }
}

Task<void> CodexRolloutLights::run() {
  for (;;) {
    co_await wake_.wait();
    co_await sleepFor(kSettling);
    wake_.lower();
    auto found =
        co_await pool_.run([look = sources_.look, paths = std::exchange(changed_, {})](std::stop_token) {
          std::map<std::string, std::optional<CodexTurn>> turns;
          for (const std::string& path : paths) turns[path] = look(path);
          return turns;
        });
    for (auto& [path, turn] : found) {
      if (const auto known = turns_.find(path); known != turns_.end()) known->second = std::move(turn);
    }
    publish();
  }
}

void CodexRolloutLights::publish() {
  std::vector<HerdrAgent> agents = *scanned_;
  for (HerdrAgent& agent : agents) {
    if (!readsRollout(agent)) continue;
    const auto& turn = turns_[*agent.transcriptReference];
    if (!turn) continue;
    agent.state = turn->state;
    if (turn->since) agent.since = turn->since;
  }
  agents_.set(std::move(agents));
}

}  // namespace ostrel
