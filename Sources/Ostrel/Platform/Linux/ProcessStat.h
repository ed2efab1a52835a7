// What /proc/PID/stat and /proc/stat say, as pure functions over their bytes. Used by `NativeProcesses`.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Processes.h"

namespace ostrel {

// One line of /proc/PID/stat. The name stands between the first "(" and the last ")", so it may hold blanks,
// parentheses, newlines, anything. `pid` and `startSeconds` are left at 0: the caller knows the one from the
// folder's name and the other from the boot time. Nothing for a line that doesn't fit.
std::optional<ProcessRow> parseProcessStat(std::string_view bytes);

// The "btime" line of /proc/stat: when the machine started, in whole seconds since 1970.
std::optional<std::int64_t> parseBootTime(std::string_view bytes);

// The name of a terminal below /dev by the kernel's tty_nr. `drivers` is /proc/tty/drivers, for devices other
// than pseudo-terminals, consoles and serial lines. Nothing for no terminal and for unknown devices.
std::optional<std::string> parseTerminalName(std::int32_t device, std::string_view drivers);

}  // namespace ostrel
