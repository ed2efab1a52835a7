#include "App/AgentWords.h"

#include <chrono>

#include <fmt/format.h>

namespace ostrel {

std::string ageWords(WallTime since, WallTime now) {
  using namespace std::chrono;
  if (now < since + minutes(1)) return "now";
  const Duration age = now - since;
  if (age < hours(1)) return fmt::format("{} min", floor<minutes>(age).count());
  if (age < days(1)) return fmt::format("{} h", floor<hours>(age).count());
  return fmt::format("{} d", floor<days>(age).count());
}

std::string askedWords(const OpenRequest& request) {
  if (const CodexAsked* const codex = request.codex())
    return codex->card.questions.empty() ? codex->card.title : codex->card.questions.front().question;
  const ClaudePermissionRequest& claude = *request.claude();
  return claude.questions.empty() ? claude.title : claude.questions.front().question;
}

}  // namespace ostrel
