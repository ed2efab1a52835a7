#include "ConversationRows.h"

#include <QDateTime>
#include <QLocale>
#include <optional>
#include <string>

#include "Words.h"

namespace ostrel {

namespace {

QString clockTime(const std::optional<std::string>& timestamp) {
  if (!timestamp) return {};
  const QDateTime time = QDateTime::fromString(words::of(*timestamp), Qt::ISODateWithMs);
  if (!time.isValid()) return {};
  const QDateTime local = time.toLocalTime();
  // Some locales' short form counts seconds.
  QString format = QLocale().timeFormat(QLocale::ShortFormat);
  format.remove(QStringLiteral(":ss"));
  const QString clock = QLocale().toString(local.time(), format);
  if (local.date() == QDate::currentDate()) return clock;
  return QLocale().toString(local.date(), QStringLiteral("d MMM")) + QStringLiteral(", ") + clock;
}

QString captionOf(const ConversationBlock& block, const QString& speaker) {
  const QString time = clockTime(block.timestamp);
  if (block.person) return time;
  return time.isEmpty() ? speaker : speaker + QStringLiteral(" · ") + time;
}

}  // namespace

std::vector<ConversationRow> conversationRows(const std::vector<ConversationBlock>& blocks,
                                              const QString& speaker, const std::vector<std::size_t>& found,
                                              int current) {
  using Kind = ConversationBlock::Kind;
  std::vector<ConversationRow> rows;
  rows.reserve(blocks.size());
  bool agentSpoke = false;
  for (const ConversationBlock& block : blocks) {
    const bool speech = block.kind != Kind::tool && block.kind != Kind::activity;
    const bool captioned = speech && block.first && (block.person || !agentSpoke);
    if (speech) agentSpoke = !block.person;
    rows.push_back({.key = words::of(block.key),
                    .kind = static_cast<int>(block.kind),
                    .person = block.person,
                    .first = block.first,
                    .last = block.last,
                    .running = block.running,
                    .body = words::of(block.text),
                    .label = words::of(block.label),
                    .caption = captioned ? captionOf(block, speaker) : QString()});
  }
  for (const std::size_t place : found) rows[place].found = ConversationRow::holds;
  if (current >= 0) rows[found[static_cast<std::size_t>(current)]].found = ConversationRow::current;
  return rows;
}

}  // namespace ostrel
