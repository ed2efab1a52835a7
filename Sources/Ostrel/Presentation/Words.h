// The core's values as the words that views show. Pure.
#pragma once

#include <QString>
#include <string_view>

#include "Agents/HerdrAgent.h"

namespace ostrel::words {

inline QString of(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}
// The same from outside, with what hides or moves other characters shown as its code: for titles, labels and
// other words by which a person decides.
QString shown(std::string_view text);
// The same, drawn in the order in which it stands: for commands, paths and lines of files.
QString exact(std::string_view text);
// "Needs you", "Working", "Done", "Idle".
QString light(AgentLight light);
// "Claude Code", "Codex"; other agents as they call themselves.
QString provider(const HerdrAgent& agent);
// Where it runs: "Konsole", "Herdr", "build-box"; empty where nobody knows.
QString host(const HerdrAgent& agent);
// Which sign stands for its provider in the rail: "claude", "codex", or "other" with the provider's initial.
QString glyph(const HerdrAgent& agent);
// The first character of a name, as a capital; empty for none.
QString initial(std::string_view name);
// The initial of its project, by which the rail tells agents apart.
QString mark(const HerdrAgent& agent);
// "provider · host", what is known of it.
QString subtitle(const HerdrAgent& agent);

}  // namespace ostrel::words
