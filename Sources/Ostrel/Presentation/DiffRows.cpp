#include "DiffRows.h"

#include <algorithm>
#include <span>
#include <utility>

#include "Codex/CodexDiff.h"
#include "Words.h"

namespace ostrel {

namespace {

QString nameOf(DiffLine::Kind kind) {
  switch (kind) {
    case DiffLine::Kind::added:
      return QStringLiteral("added");
    case DiffLine::Kind::removed:
      return QStringLiteral("removed");
    case DiffLine::Kind::place:
      return QStringLiteral("place");
    case DiffLine::Kind::same:
      break;
  }
  return QStringLiteral("same");
}

// "+12 −3"; what there is none of is left out.
QString counts(std::span<const DiffLine> lines) {
  const auto count = [&](DiffLine::Kind kind) { return std::ranges::count(lines, kind, &DiffLine::kind); };
  QStringList pieces;
  if (const auto added = count(DiffLine::Kind::added)) pieces.append(QStringLiteral("+%1").arg(added));
  if (const auto removed = count(DiffLine::Kind::removed)) pieces.append(QStringLiteral("−%1").arg(removed));
  return pieces.join(QLatin1Char(' '));
}

QString heading(const FileChange& change, std::span<const DiffLine> lines) {
  QStringList pieces;
  if (!change.kind.empty()) pieces.append(words::shown(change.kind));
  pieces.append(words::exact(change.path));
  if (const QString all = counts(lines); !all.isEmpty()) pieces.append(QStringLiteral(" ") + all);
  return pieces.join(QLatin1Char(' '));
}

}  // namespace

void DiffRows::set(std::vector<FileChange> changes) {
  changes_ = std::move(changes);
  fill();
}

void DiffRows::unfold(const QString& key) {
  unfolded_.insert(key);
  fill();
}

void DiffRows::fill() {
  std::vector<DiffRow> rows;
  for (std::size_t i = 0; i < changes_.size(); ++i) {
    const QString file = QString::number(i);
    const std::vector<DiffLine> lines = diffLines(changes_[i]);
    rows.push_back({file, QStringLiteral("file"), heading(changes_[i], lines)});
    const QString fold = file + QStringLiteral(":fold");
    const bool folded = lines.size() > kUnfolded && !unfolded_.contains(fold);
    const std::span<const DiffLine> all(lines);
    for (std::size_t j = 0; j < (folded ? kFolded : lines.size()); ++j) {
      rows.push_back({file + QLatin1Char(':') + QString::number(j), nameOf(lines[j].kind),
                      words::exact(lines[j].text).replace(QLatin1Char('\t'), QStringLiteral("    "))});
    }
    if (!folded) continue;
    const auto rest = all.subspan(kFolded);
    rows.push_back({fold, QStringLiteral("fold"),
                    QStringLiteral("Show %1 more lines  %2").arg(rest.size()).arg(counts(rest))});
  }
  rows_.set(std::move(rows));
}

}  // namespace ostrel
