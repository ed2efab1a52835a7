#include "ListModel.h"

#include <QMetaProperty>
#include <QSet>

namespace ostrel {

namespace {

// A role is the place of its property in the row's type.
constexpr int kFirstRole = Qt::UserRole + 1;

}  // namespace

void RowList::follow(const std::vector<QString>& keys) {
  const std::size_t before = size();
  removeMissing(keys);
  for (std::size_t i = 0; i < keys.size(); ++i) {
    const int place = static_cast<int>(i);
    std::size_t found = i;
    while (found < size() && key(found) != keys[i]) ++found;
    if (found == size()) {
      beginInsertRows({}, place, place);
      insertNew(i);
      endInsertRows();
      continue;
    }
    if (found != i) {
      const int from = static_cast<int>(found);
      beginMoveRows({}, from, from, {}, place);
      rotate(found, i);
      endMoveRows();
    }
    if (replaceByNew(i)) Q_EMIT dataChanged(index(place), index(place));
  }
  if (size() != before) Q_EMIT countChanged();
}

void RowList::removeMissing(const std::vector<QString>& keys) {
  const QSet<QString> wanted(keys.begin(), keys.end());
  for (std::size_t i = size(); i-- > 0;) {
    if (wanted.contains(key(i))) continue;
    beginRemoveRows({}, static_cast<int>(i), static_cast<int>(i));
    erase(i);
    endRemoveRows();
  }
}

QVariant RowList::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= count()) return {};
  const QMetaProperty property = rowType_.property(role - kFirstRole);
  return property.isValid() ? property.readOnGadget(row(static_cast<std::size_t>(index.row()))) : QVariant();
}

QHash<int, QByteArray> RowList::roleNames() const {
  QHash<int, QByteArray> names;
  for (int i = 0; i < rowType_.propertyCount(); ++i)
    names.insert(kFirstRole + i, rowType_.property(i).name());
  return names;
}

}  // namespace ostrel
