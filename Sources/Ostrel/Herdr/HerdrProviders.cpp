#include "Herdr/HerdrProviders.h"

#include <algorithm>

namespace ostrel {

namespace {

constexpr HerdrProvider kCatalogue[] = {
    {"codex", "Codex", "codex", "codex", true},
    {"claude", "Claude Code", "claude", "claude", true},
    {"copilot", "GitHub Copilot CLI", "copilot", "copilot", true},
    {"cursor", "Cursor Agent CLI", "cursor-agent", "cursor", true},
    {"opencode", "OpenCode", "opencode", "opencode", true},
    {"pi", "Pi", "pi", "pi", true},
    {"omp", "OMP", "omp", "omp", true},
    {"droid", "Droid", "droid", "droid", true},
    {"devin", "Devin CLI", "devin", "devin", true},
    {"kimi", "Kimi Code CLI", "kimi", "kimi", true},
    {"kilo", "Kilo Code CLI", "kilo", "kilo", true},
    {"hermes", "Hermes Agent", "hermes", "hermes", true},
    {"qodercli", "Qoder CLI", "qodercli", "qodercli", true},
    {"qwen", "Qwen Code", "qwen", "qwen", true},
    {"letta", "Letta Code", "letta", "letta", true},
    {"mastracode", "MastraCode", "mastracode", "mastracode", true},
    {"grok", "Grok CLI", "grok", "grok", true},
    {"agy", "Antigravity CLI", "agy", "antigravity-cli", true},
    {"amp", "Amp", "amp", {}, true},
    {"kiro", "Kiro CLI", "kiro-cli", {}, true},
    {"maki", "Maki", "maki", {}, true},
    {"gemini", "Gemini CLI", "gemini", {}, true},
    {"cline", "Cline", "cline", {}, true},
    {"muse", "Muse Code", "muse", {}, true},
    {"command", "Command Code", "command", {}, false},
    {"crush", "Crush", "crush", {}, false},
    {"prime", "Prime Agent", "prime", {}, false},
};

}  // namespace

std::string_view HerdrProvider::note() const {
  if (!launchable) {
    return "Connects automatically when this agent reports itself from a Herdr pane. Use its own launcher in "
           "Herdr.";
  }
  if (id == "letta") {
    return "Experimental integration. Interactive controls are available; setup may require attention.";
  }
  if (id == "gemini" || id == "cline") {
    return "Herdr marks detection as less tested. The interactive terminal remains available when status is "
           "uncertain.";
  }
  if (id == "omp" || id == "mastracode") {
    return "Install the integration for agent status. Interactive menus and approvals stay available in the "
           "terminal.";
  }
  if (id == "codex" || id == "claude") return "Formatted chat and interactive terminal controls.";
  return "Interactive terminal: chat, approvals, model menus, files and provider commands.";
}

std::span<const HerdrProvider> HerdrProvider::all() { return kCatalogue; }

const HerdrProvider* HerdrProvider::find(std::string_view id) {
  const auto found = std::ranges::find(kCatalogue, id, &HerdrProvider::id);
  return found == std::end(kCatalogue) ? nullptr : found;
}

}  // namespace ostrel
