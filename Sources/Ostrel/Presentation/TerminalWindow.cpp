#include "TerminalWindow.h"

#include <algorithm>
#include <map>
#include <ranges>

#include "Discovery/ExternalAgents.h"
#include "X11Windows.h"

namespace ostrel::TerminalWindow {

std::vector<std::int64_t> lineage(std::string_view table, std::int64_t pid) {
  std::map<std::int64_t, std::int64_t> parents;
  for (const ExternalProcess& process : ExternalAgents::processes(table, std::nullopt))
    parents.emplace(process.pid, process.parent);
  std::vector<std::int64_t> found;
  // A table that is read while processes come and go may hold a circle.
  while (pid > 1 && std::ranges::find(found, pid) == found.end()) {
    found.push_back(pid);
    const auto parent = parents.find(pid);
    pid = parent == parents.end() ? 0 : parent->second;
  }
  return found;
}

std::function<void()> of(const std::vector<std::int64_t>& lineage) {
  const auto windows = x11::clientWindows();
  for (const std::int64_t pid : lineage) {
    // Of several windows of one program the one that was used last is the likeliest.
    for (const auto& window : windows | std::views::reverse) {
      if (window.pid == pid) return [id = window.id] { x11::activate(id); };
    }
  }
  return {};
}

}  // namespace ostrel::TerminalWindow
