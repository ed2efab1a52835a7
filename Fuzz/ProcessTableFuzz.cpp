// What the kernel, ps and Claude Code say of processes, as any bytes.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Discovery/ClaudeSessions.h"
#include "Discovery/ExternalAgents.h"
#include "Platform/Linux/DesktopHostApplications.h"
#include "Platform/Linux/ProcessStat.h"
#include "Platform/Linux/SocketDiagnosis.h"
#include "Require.h"
#include "Runtime/Text.h"

namespace {

using namespace ostrel;

void table(std::string_view bytes) {
  const auto all = ExternalAgents::processes(bytes, std::nullopt);
  std::size_t own = 0;
  for (const ExternalProcess& process : all) {
    require(!process.executable.empty() && process.executable.find('\n') == std::string::npos);
    require(text::words(process.started).size() == 5);
    if (process.uid == 501) ++own;
    ExternalAgents::startDate(process.started);
    static_cast<void>(process.provider());
  }
  require(ExternalAgents::processes(bytes, 501).size() == own);
}

void openFiles(std::string_view bytes) {
  for (const auto& path : ExternalAgents::openFiles(bytes).transcripts) {
    require(conversationID(path).has_value() && path.find('\n') == std::string::npos);
  }
}

void startDate(std::string_view bytes) {
  const WallTime date = ExternalAgents::startDate(bytes);
  // The kernel can't have started anything before 1970, the time zone apart.
  require(date == kDistantPast || date > WallTime(std::chrono::hours(-24)));
}

void stat(std::string_view bytes) {
  if (const auto row = parseProcessStat(bytes)) {
    require(row->name().size() <= 15);
    // The name as a table shows it never breaks the table's line.
    const std::string line = "1 1 501 S ?? a b c d e x" + oneLine(row->name());
    require(text::isUtf8(line) && !text::hasControlCharacter(line));
    require(ExternalAgents::processes(line, 501).size() == 1);
  }
  parseBootTime(bytes);
  for (const int device : {0x0401, 0xBC02, -1, 0x2305}) parseTerminalName(device, bytes);
}

void others(std::string_view bytes) {
  if (const auto session = parseClaudeSession(bytes, {42, WallTime(std::chrono::seconds(1'790'000'000))})) {
    require(text::canonicalUuid(session->id).has_value());
  }
  std::map<std::uint32_t, LocalSocket> sockets;
  bool failed = false;
  parseSocketList(bytes, sockets, failed);
  if (const auto program = DesktopEntry::hostProgram(bytes)) require(!program->empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  for (const auto parse : {table, openFiles, startDate, stat, others}) parse(bytes);
  return 0;
}
