// What `NativeProcesses` reads of a single process: arguments, links, open files.
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/stat.h>

#include <fmt/format.h>

#include "Platform/Linux/NativeProcesses.h"
#include "Platform/Linux/ProcFiles.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

// More than the kernel lets a command line have in its usual setting.
constexpr std::size_t kArgumentsCap = 8 << 20;
constexpr std::size_t kStatusCap = 64 << 10;

struct CloseFolder {
  void operator()(DIR* folder) const { ::closedir(folder); }
};

// The kernel's descriptor link has the mode of the descriptor: readable, writable.
char accessLetter(mode_t linkMode) {
  if (!(linkMode & S_IWUSR)) return 'r';
  return linkMode & S_IRUSR ? 'u' : 'w';
}

// Of the line of /proc/PID/status that begins with `key`; empty where there is none.
std::string_view statusValue(std::string_view status, std::string_view key) {
  for (const auto line : text::split(status, '\n')) {
    if (line.starts_with(key)) return text::trimBlanks(line.substr(key.size()));
  }
  return {};
}

}  // namespace

std::vector<std::string> NativeProcesses::argumentList(std::int32_t pid) {
  const std::string bytes = readProcFile(root_.get(), ProcessPath(pid, "cmdline").c_str(), kArgumentsCap);
  std::vector<std::string> arguments;
  const auto last = bytes.find_last_not_of('\0');
  if (last == std::string::npos) return arguments;
  for (const auto argument : text::split(std::string_view(bytes).substr(0, last + 1), '\0'))
    arguments.push_back(text::repairUtf8(argument));
  return arguments;
}

std::optional<std::string> NativeProcesses::variable(std::int32_t pid, std::string_view name) {
  const std::string bytes = readProcFile(root_.get(), ProcessPath(pid, "environ").c_str(), kArgumentsCap);
  for (const auto pair : text::split(bytes, '\0')) {
    if (pair.size() > name.size() && pair.starts_with(name) && pair[name.size()] == '=')
      return text::repairUtf8(pair.substr(name.size() + 1));
  }
  return std::nullopt;
}

std::string NativeProcesses::openFiles(std::int32_t pid) {
  std::string records;
  const auto add = [&records](std::string_view line) {
    if (!records.empty()) records += '\n';
    records += line;
  };
  const ProcLink folder = readProcLink(root_.get(), ProcessPath(pid, "cwd").c_str());
  if (!folder.target.empty()) {
    add("fcwd");
    add("n" + oneLine(folder.target));
  }
  const int descriptors =
      ::openat(root_.get(), ProcessPath(pid, "fd").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptors < 0) return records;
  const std::unique_ptr<DIR, CloseFolder> links(::fdopendir(descriptors));
  if (!links) {
    ::close(descriptors);
    return records;
  }
  while (const dirent* entry = ::readdir(links.get())) {
    if (entry->d_name[0] == '.') continue;
    const ProcLink link = readProcLink(descriptors, entry->d_name);
    // "socket:[1]", "pipe:[2]", "anon_inode:[eventfd]", "/dev/pts/3", "/memfd:name (deleted)"
    if (!link.target.starts_with('/') || link.target.starts_with("/dev/") || link.deleted) continue;
    struct stat status{};
    if (::fstatat(descriptors, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
    add(fmt::format("f{}\na{}\nn{}", entry->d_name, accessLetter(status.st_mode), oneLine(link.target)));
  }
  return records;
}

std::string NativeProcesses::executablePath(std::int32_t pid) {
  return readProcLink(root_.get(), ProcessPath(pid, "exe").c_str()).target;
}

bool NativeProcesses::traced(std::int32_t pid) {
  const std::string status = readProcFile(root_.get(), ProcessPath(pid, "status").c_str(), kStatusCap);
  const auto tracer = statusValue(status, "TracerPid:");
  return !tracer.empty() && tracer != "0";
}

std::vector<std::int32_t> NativeProcesses::innerPids(std::int32_t pid) {
  const std::string status = readProcFile(root_.get(), ProcessPath(pid, "status").c_str(), kStatusCap);
  std::vector<std::int32_t> pids;
  for (const auto word : text::words(statusValue(status, "NSpid:"))) {
    if (const auto number = text::parseInteger(word)) pids.push_back(static_cast<std::int32_t>(*number));
  }
  if (!pids.empty()) pids.erase(pids.begin());  // the one that we know
  return pids;
}

std::string NativeProcesses::workingFolder(std::int32_t pid) {
  return text::repairUtf8(readProcLink(root_.get(), ProcessPath(pid, "cwd").c_str()).target);
}

}  // namespace ostrel
