#include "RowModel.h"

#include <QSet>
#include <algorithm>
#include <utility>

namespace ostrel {

namespace {

constexpr int kFirstRole = Qt::UserRole + 1;

}  // namespace

RowModel::RowModel(std::vector<QByteArray> roles, QObject* parent)
    : QAbstractListModel(parent), roles_(std::move(roles)) {}

void RowModel::set(const std::vector<Row>& rows) {
  if (rows == rows_) return;
  const auto before = rows_.size();
  removeMissing(rows);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const int place = static_cast<int>(i);
    const auto at = rows_.begin() + place;
    const auto found = std::ranges::find(at, rows_.end(), rows[i].key, &Row::key);
    if (found == rows_.end()) {
      beginInsertRows({}, place, place);
      rows_.insert(at, rows[i]);
      endInsertRows();
      continue;
    }
    if (found != at) {
      const int from = static_cast<int>(found - rows_.begin());
      beginMoveRows({}, from, from, {}, place);
      std::rotate(at, found, found + 1);
      endMoveRows();
    }
    if (rows_[i] == rows[i]) continue;
    rows_[i] = rows[i];
    Q_EMIT dataChanged(index(place), index(place));
  }
  if (rows_.size() != before) Q_EMIT countChanged();
}

void RowModel::removeMissing(const std::vector<Row>& rows) {
  QSet<QString> keys;
  for (const Row& row : rows) keys.insert(row.key);
  for (int i = count() - 1; i >= 0; --i) {
    if (keys.contains(rows_[static_cast<std::size_t>(i)].key)) continue;
    beginRemoveRows({}, i, i);
    rows_.erase(rows_.begin() + i);
    endRemoveRows();
  }
}

QVariant RowModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= count()) return {};
  const Row& row = rows_[static_cast<std::size_t>(index.row())];
  return role == kFirstRole ? QVariant(row.key) : row.values.value(role - kFirstRole - 1);
}

QHash<int, QByteArray> RowModel::roleNames() const {
  QHash<int, QByteArray> names{{kFirstRole, "key"}};
  for (std::size_t i = 0; i < roles_.size(); ++i)
    names.insert(kFirstRole + 1 + static_cast<int>(i), roles_[i]);
  return names;
}

}  // namespace ostrel
