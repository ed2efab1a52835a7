#include "Words.h"

#include <QStringList>

#include "Client/AgentLabels.h"
#include "Runtime/ShownText.h"
#include "Runtime/Text.h"

namespace ostrel::words {

QString shown(std::string_view text) { return of(text::marked(text)); }

QString exact(std::string_view text) { return of(text::inOrder(text)); }

QString light(AgentLight light) { return of(agentLabels::lightWord(light)); }

QString provider(const HerdrAgent& agent) {
  if (agent.knownProvider() == AgentProvider::claude) return QStringLiteral("Claude Code");
  if (agent.knownProvider() == AgentProvider::codex) return QStringLiteral("Codex");
  return shown(text::capitalizedFirst(agent.provider));
}

QString host(const HerdrAgent& agent) {
  if (agent.machine) return shown(agent.machine->label);
  return shown(text::capitalizedFirst(agent.hostLabel().value_or("")));
}

QString glyph(const HerdrAgent& agent) {
  if (agent.knownProvider() == AgentProvider::claude) return QStringLiteral("claude");
  if (agent.knownProvider() == AgentProvider::codex) return QStringLiteral("codex");
  return QStringLiteral("other");
}

QString initial(std::string_view name) {
  return shown(text::capitalizedFirst(text::prefixCharacters(name, 1)));
}

QString mark(const HerdrAgent& agent) { return initial(text::lastPathComponent(agent.context)); }

QString subtitle(const HerdrAgent& agent) {
  QStringList pieces{provider(agent)};
  if (const QString where = host(agent); !where.isEmpty()) pieces.append(where);
  return pieces.join(QStringLiteral(" · "));
}

}  // namespace ostrel::words
