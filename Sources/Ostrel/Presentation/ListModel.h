// Lists for views: rows of one value type each, which has a key of its own among them. Main thread only.
//
// The owner sets the whole list; the model works out which rows came, went, moved or changed, so that a view
// keeps its place and can animate what happened.
//
// A row type is a `Q_GADGET` whose properties are what a view's delegate asks for by their names:
//
//   struct LightRow {
//     Q_GADGET
//     Q_PROPERTY(QString key MEMBER key)
//     Q_PROPERTY(int light MEMBER light)
//    public:
//     QString key;    // unique in the list
//     int light = 0;  // as the number of an `AgentLight`
//     bool operator==(const LightRow&) const = default;
//   };
#pragma once

#include <QAbstractListModel>
#include <QtQmlIntegration>
#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace ostrel {

// What all lists have in common, and what views know of them.
class RowList : public QAbstractListModel {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by its bridge")
  Q_PROPERTY(int count READ count NOTIFY countChanged)  // rows

 public:
  int count() const { return static_cast<int>(size()); }
  int rowCount(const QModelIndex& parent = {}) const override { return parent.isValid() ? 0 : count(); }
  QVariant data(const QModelIndex& index, int role) const override;
  QHash<int, QByteArray> roleNames() const override;

 Q_SIGNALS:
  void countChanged();

 protected:
  // `rowType` outlives the list.
  RowList(const QMetaObject& rowType, QObject* parent) : QAbstractListModel(parent), rowType_(rowType) {}

  // Makes the list, by steps of which the views are told, that of `keys`.
  void follow(const std::vector<QString>& keys);

 private:
  // The typed list's part. `place` counts rows of the list as it stands, or of that which is set.
  virtual std::size_t size() const = 0;
  virtual const void* row(std::size_t place) const = 0;
  virtual const QString& key(std::size_t place) const = 0;
  virtual void erase(std::size_t place) = 0;
  virtual void insertNew(std::size_t place) = 0;
  virtual void rotate(std::size_t from, std::size_t to) = 0;  // `to` is the lower one
  virtual bool replaceByNew(std::size_t place) = 0;           // false where nothing differs

  void removeMissing(const std::vector<QString>& keys);

  const QMetaObject& rowType_;
};

template <class T>
class ListModel final : public RowList {
 public:
  explicit ListModel(QObject* parent = nullptr) : RowList(T::staticMetaObject, parent) {}

  void set(std::vector<T> rows) {
    if (rows == rows_) return;
    std::vector<QString> keys;
    keys.reserve(rows.size());
    for (const T& row : rows) keys.push_back(row.key);
    new_ = std::move(rows);
    follow(keys);
    new_.clear();
  }
  const std::vector<T>& rows() const { return rows_; }

 private:
  std::size_t size() const override { return rows_.size(); }
  const void* row(std::size_t place) const override { return &rows_[place]; }
  const QString& key(std::size_t place) const override { return rows_[place].key; }
  void erase(std::size_t place) override { rows_.erase(at(place)); }
  void insertNew(std::size_t place) override { rows_.insert(at(place), std::move(new_[place])); }
  void rotate(std::size_t from, std::size_t to) override { std::rotate(at(to), at(from), at(from + 1)); }
  bool replaceByNew(std::size_t place) override {
    if (rows_[place] == new_[place]) return false;
    rows_[place] = std::move(new_[place]);
    return true;
  }
  typename std::vector<T>::iterator at(std::size_t place) {
    return rows_.begin() + static_cast<std::ptrdiff_t>(place);
  }

  std::vector<T> rows_;
  std::vector<T> new_;  // while the list follows it
};

}  // namespace ostrel
