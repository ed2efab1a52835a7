#include "Conversations/AgentTranscript.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <map>
#include <mutex>
#include <sys/stat.h>

#include "Conversations/HistorySearch.h"
#include "Runtime/Failure.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

constexpr std::string_view kNotLinked =
    "Conversation history isn’t linked for this agent yet. Terminal output is available below.";
constexpr std::string_view kUnsupported = "Unsupported conversation reference. Use terminal output for now.";
constexpr std::string_view kNotAvailable =
    "The linked conversation file isn’t available. Use terminal output for now.";
constexpr std::string_view kOutside = "Conversation path is outside the supported local history folder.";

[[noreturn]] void fail(std::string_view words) { throw Failure(std::string(words)); }

bool exists(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0;
}

// The path with its symbolic links resolved, as far as it exists; what doesn't exist stays as it is written.
// Nothing where that says too little about where the file would be: dangling links, loops, ".." below what
// doesn't exist.
std::optional<std::string> resolveLinks(std::string path) {
  if (path.empty() || path.find('\0') != std::string::npos) return std::nullopt;
  if (!path.starts_with('/')) path.insert(0, "./");
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  char real[PATH_MAX];
  std::size_t end = path.size();
  for (;;) {
    const std::string prefix = path.substr(0, std::max<std::size_t>(end, 1));
    if (::realpath(prefix.c_str(), real)) break;
    if (errno != ENOENT && errno != ENOTDIR && errno != EACCES) return std::nullopt;
    struct stat info;
    if (::lstat(prefix.c_str(), &info) == 0 && S_ISLNK(info.st_mode)) return std::nullopt;
    if (prefix == "." || prefix == "/") return std::nullopt;
    end = prefix.find_last_not_of('/', prefix.rfind('/'));
    end = end == std::string::npos ? 0 : end + 1;
  }
  std::string result = real;
  for (const auto piece : text::split(std::string_view(path).substr(end), '/')) {
    if (piece.empty() || piece == ".") continue;
    if (piece == "..") return std::nullopt;
    if (!result.ends_with('/')) result += '/';
    result += piece;
  }
  return result;
}

}  // namespace

std::optional<std::string> conversationID(std::string_view reference) {
  if (auto id = text::canonicalUuid(reference)) return id;
  std::string_view stem = text::lastPathComponent(reference);
  if (!stem.ends_with(".jsonl")) return std::nullopt;
  stem.remove_suffix(6);
  if (stem.size() != 36 && !(stem.size() > 36 && stem.starts_with("rollout-"))) return std::nullopt;
  return text::canonicalUuid(stem.substr(stem.size() - 36));
}

struct AgentTranscript::Shared {
  explicit Shared(Environment given) : environment(std::move(given)) {}

  std::string expandTilde(const std::string& path) const {
    return path == "~" || path.starts_with("~/") ? environment.home.string() + path.substr(1) : path;
  }
  std::vector<std::string> historyFolders(bool codex) const;
  std::string located(std::string_view provider, const std::string& id, bool codex,
                      const std::vector<std::string>& folders);

  const Environment environment;
  HistorySearch search;
  std::mutex locationLock;
  std::map<std::string, std::string, std::less<>> locations;  // "<provider>:<id>" to the resolved path
};

std::vector<std::string> AgentTranscript::Shared::historyFolders(bool codex) const {
  const auto own = codex ? environment.codexFolder() : environment.claudeFolder();
  std::vector<std::string> folders;
  for (const char* name : {"sessions", "archived_sessions", "projects"}) {
    if (codex == (std::string_view(name) == "projects")) continue;
    if (auto folder = resolveLinks((own / name).string())) folders.push_back(std::move(*folder));
  }
  return folders;
}

std::string AgentTranscript::Shared::located(std::string_view provider, const std::string& id, bool codex,
                                             const std::vector<std::string>& folders) {
  const std::string key = std::string(provider) + ":" + id;
  {
    const std::lock_guard guard(locationLock);
    const auto known = locations.find(key);
    if (known != locations.end()) {
      if (exists(known->second)) return known->second;
      locations.erase(known);
    }
  }
  HistorySearch::Names names{id + ".jsonl", codex ? "-" + id + ".jsonl" : ""};
  const auto found = search.find(folders, names, std::chrono::steady_clock::now());
  if (found.size() != 1) fail(kNotAvailable);
  auto path = resolveLinks(found.front());
  if (!path) fail(kNotAvailable);
  constexpr std::size_t kLocations = 1000;
  const std::lock_guard guard(locationLock);
  if (locations.size() >= kLocations) locations.clear();
  locations.insert_or_assign(key, *path);
  return *path;
}

AgentTranscript::AgentTranscript(Environment environment)
    : shared_(std::make_shared<Shared>(std::move(environment))) {}

std::filesystem::path AgentTranscript::resolve(const std::optional<std::string>& reference,
                                               const std::optional<std::string>& kind,
                                               std::string_view provider) const {
  const std::string name = text::lowercase(provider);
  const bool codex = name.find("codex") != std::string::npos;
  if ((!codex && name.find("claude") == std::string::npos) || !reference || !kind) fail(kNotLinked);
  const auto folders = shared_->historyFolders(codex);
  std::string candidate;
  if (*kind == "path") {
    auto path = resolveLinks(shared_->expandTilde(*reference));
    if (!path) fail(kOutside);
    candidate = std::move(*path);
  } else if (*kind == "id" && text::canonicalUuid(*reference)) {
    candidate = shared_->located(provider, *reference, codex, folders);
  } else {
    fail(kUnsupported);
  }
  for (const auto& folder : folders) {
    const std::string_view path = candidate;
    if (path.starts_with(folder + "/") && text::lastPathComponent(path).size() > 6 &&
        path.ends_with(".jsonl"))
      return candidate;
  }
  fail(kOutside);
}

}  // namespace ostrel
