#include "StateFolder.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/syscall.h>

#include "Runtime/Failure.h"
#include "Runtime/Files.h"
#include "Runtime/Text.h"

namespace ostrel::standin {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kOversize = 8'000'100;  // bytes

}  // namespace

std::string Fault::applied(std::string bytes) const {
  if (oversize) return std::string(kOversize, 'x');
  if (!answer) return bytes;
  return answer->is_string() ? answer->get<std::string>() : json::dump(*answer) + "\n";
}

StateFolder StateFolder::fromEnvironment() {
  const char* path = std::getenv("STANDIN_HERDR_HOME");
  if (!path || *path == 0) throw Failure("STANDIN_HERDR_HOME is not set.");
  return StateFolder(path);
}

std::vector<std::string> StateFolder::sessions() const {
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(path_ / "sessions", error))
    names.push_back(entry.path().filename().string());
  std::ranges::sort(names);
  return names;
}

Json StateFolder::read(std::string_view name, Json otherwise) const {
  const auto bytes = files::read(path_ / name);
  return bytes ? json::parse(*bytes).value_or(std::move(otherwise)) : std::move(otherwise);
}

void StateFolder::write(std::string_view name, const Json& value) const {
  files::replace(path_ / name, json::dumpPretty(value));
}

std::optional<Fault> StateFolder::fault(std::string_view on, std::string_view session) const {
  for (const Json& row : read("faults.json", Json::array())) {
    if (json::string(row, "on") != on ||
        json::string(row, "session").value_or(std::string(session)) != session)
      continue;
    Fault fault;
    fault.silence = json::boolean(row, "silence").value_or(false);
    if (const Json* answer = json::member(row, "answer")) fault.answer = *answer;
    if (const auto exit = json::integer(row, "exit")) fault.exit = static_cast<int>(*exit);
    fault.oversize = json::boolean(row, "oversize").value_or(false);
    return fault;
  }
  return std::nullopt;
}

void StateFolder::log(std::string_view line) const {
  const UniqueFd file(
      ::open((path_ / "commands.log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  const std::string bytes = text::escapeControls(line) + "\n";
  // One write, so that lines of several processes don't mix.
  [[maybe_unused]] const auto written = ::write(file.get(), bytes.data(), bytes.size());
}

UniqueFd ownerDescriptor() {
  const char* owner = std::getenv("STANDIN_HERDR_OWNER");
  if (!owner || *owner == 0) return {};
  UniqueFd descriptor(static_cast<int>(::syscall(SYS_pidfd_open, std::atoi(owner), 0)));
  if (!descriptor) throw Failure::ofErrno("The owner has ended", errno);
  return descriptor;
}

}  // namespace ostrel::standin
