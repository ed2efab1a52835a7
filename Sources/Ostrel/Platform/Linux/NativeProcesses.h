// The process tables, read from /proc. The real `Processes`.
//
// The first `rows` reads every process; later ones list the processes (their pids and inodes) and read only
// what can have changed: rows that first appeared less than ten seconds ago (a fork executes its program soon
// after, however many calls come in between), that have a terminal, that are followed or an ancestor of a
// followed one, or whose parent is gone, and of the others a twelfth by turns.
//
// Nothing is allocated per row: the table and the list live in vectors that keep their room between calls.
#pragma once

#include <filesystem>
#include <functional>
#include <mutex>
#include <unordered_map>

#include "Platform/Processes.h"
#include "Runtime/MainLoop.h"
#include "Runtime/UniqueFd.h"

namespace ostrel {

class NativeProcesses : public Processes {
 public:
  // Tells the time, steadily. Called by whichever thread asks for rows.
  using Now = std::function<TimePoint()>;

  // `procRoot` is a folder laid out like /proc. Where it can't be opened every answer is empty.
  explicit NativeProcesses(const std::filesystem::path& procRoot = "/proc", Now now = steadyNow);
  ~NativeProcesses() override;

  std::vector<ProcessRow> rows(NameTest followed) override;
  std::optional<std::string> table() override;
  std::optional<std::uint32_t> uid(std::int32_t pid) override;
  std::string command(const ProcessRow& row) override;
  std::string terminalName(std::int32_t device) override;
  std::string startString(std::int64_t seconds) override;
  std::vector<std::string> argumentList(std::int32_t pid) override;
  std::optional<std::string> variable(std::int32_t pid, std::string_view name) override;
  std::string openFiles(std::int32_t pid) override;
  std::string workingFolder(std::int32_t pid) override;
  std::vector<std::int32_t> innerPids(std::int32_t pid) override;
  std::string executablePath(std::int32_t pid) override;
  bool alive(std::int32_t pid) override;
  bool traced(std::int32_t pid) override;
  std::uint32_t ownUid() override;

 private:
  // One process as it was last read. `readAt` is the number of a refresh.
  struct Entry {
    ProcessRow row;
    std::uint64_t inode = 0;
    TimePoint firstSeen{};
    std::uint64_t readAt = 0;
    bool vanished = false;
  };
  struct Listed {
    std::int32_t pid;
    std::uint64_t inode;
  };
  struct NamedCommand {
    std::array<char, 16> comm;  // an exec keeps pid and start, so the name belongs to what is remembered
    std::string command;
  };
  struct Identity {
    std::int32_t pid;
    std::uint64_t startTicks;
    bool operator==(const Identity&) const = default;
  };
  struct IdentityHash {
    std::size_t operator()(const Identity& identity) const;
  };

  enum class Extent { changed, all };

  // Under `tableLock_`, like the fields below it.
  std::vector<ProcessRow> refresh(NameTest followed, Extent extent);
  bool list();
  void updateBootTime();
  void read(Entry& entry);
  void readOrphans();
  void readAncestors(const Entry& entry);

  static TimePoint steadyNow();

  const UniqueFd root_;
  const Now now_;
  const std::int64_t ticksPerSecond_;

  std::mutex tableLock_;
  std::uint64_t refreshes_ = 0;
  TimePoint refreshedAt_{};
  std::vector<char> buffer_;
  std::vector<Listed> listed_;
  std::vector<Entry> entries_;       // ascending by pid
  std::vector<Entry> older_;         // the room of the entries before
  std::vector<std::int32_t> ended_;  // whose children have another parent now
  std::optional<std::int64_t> bootTime_;
  std::int64_t bootOffset_ = 0;  // wall time less time since boot when `bootTime_` was read, nanoseconds
  bool refused_ = false;         // the kernel lacks room for more descriptors or memory

  std::mutex cacheLock_;
  std::unordered_map<std::int32_t, std::string> ttyNames_;
  std::unordered_map<std::int64_t, std::string> startStrings_;
  std::mutex commandLock_;
  std::unordered_map<Identity, NamedCommand, IdentityHash> commands_;
};

}  // namespace ostrel
