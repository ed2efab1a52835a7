#include "Agents/HerdrAgent.h"

#include <algorithm>
#include <array>

#include <fmt/format.h>

#include "Runtime/Text.h"

namespace ostrel {

namespace {

using namespace std::literals;

constexpr std::array kRecognized = {"codex"sv, "claude"sv, "gemini"sv, "aider"sv};
constexpr auto kActiveWindow = 10s;

std::string counted(std::string_view text) { return fmt::format("{}:{}", text.size(), text); }

std::string_view withoutExtension(std::string_view name) {
  const auto dot = name.rfind('.');
  return dot == std::string_view::npos || dot == 0 ? name : name.substr(0, dot);
}

}  // namespace

std::string_view lightName(AgentLight light) {
  switch (light) {
    case AgentLight::needsYou:
      return "needsYou";
    case AgentLight::working:
      return "working";
    case AgentLight::done:
      return "done";
    case AgentLight::idle:
      break;
  }
  return "idle";
}

std::optional<std::string_view> recognizedProvider(std::string_view executableName) {
  const auto bare = text::dropSuffix(executableName, ".exe");
  const auto found = std::ranges::find(kRecognized, bare);
  if (found == kRecognized.end()) return std::nullopt;
  return *found;
}

std::string_view ExternalProcess::name() const { return text::lastPathComponent(executable); }

std::optional<std::string_view> ExternalProcess::provider() const { return recognizedProvider(name()); }

std::string HerdrAgent::id() const {
  std::string result;
  if (machine) result = "machine" + counted(machine->id) + "host" + counted(machine->target);
  return result + counted(session) + paneID;
}

std::vector<std::string> HerdrAgent::commandPrefix() const {
  if (machine) return {"--machine", machine->id};
  return {"--session", session};
}

std::optional<AgentProvider> HerdrAgent::knownProvider() const {
  const std::string lower = text::lowercase(provider);
  if (lower.find("claude") != std::string::npos) return AgentProvider::claude;
  if (lower.find("codex") != std::string::npos) return AgentProvider::codex;
  return std::nullopt;
}

AgentHost HerdrAgent::host() const {
  using Kind = AgentHost::Kind;
  // A thread whose terminal is known is where that terminal is.
  if (isCodexLive() && !externalProcess) return {Kind::codexApp, {}, {}};
  if (externalProcess && externalProcess->hostApp) {
    const std::string& path = *externalProcess->hostApp;
    const auto& name = externalProcess->hostName;
    return {Kind::app, path, name ? *name : std::string(withoutExtension(text::lastPathComponent(path)))};
  }
  if (isExternal() && !herdrOwned) return {Kind::none, {}, {}};
  return {Kind::herdr, {}, {}};
}

std::optional<std::string> HerdrAgent::hostLabel() const {
  const AgentHost where = host();
  switch (where.kind) {
    case AgentHost::Kind::codexApp:
      return "Codex app";
    case AgentHost::Kind::app:
      return where.name;
    case AgentHost::Kind::none:
      return std::nullopt;
    case AgentHost::Kind::herdr:
      break;
  }
  return "Herdr";
}

std::string HerdrAgent::projectLabel() const {
  std::string label = machine ? machine->label + " · " : std::string();
  label += context.starts_with('/') ? text::lastPathComponent(context) : std::string_view(context);
  return label;
}

std::string HerdrAgent::displayTitle(const Preferences& preferences) const {
  return preferences.string("agentTitle." + id()).value_or(title);
}

bool HerdrAgent::recentlyActive(WallTime now) const {
  return isExternal() && !tellsState && transcriptKind == "path" && state == AgentState::unknown && since &&
         now - *since < kActiveWindow;
}

}  // namespace ostrel
