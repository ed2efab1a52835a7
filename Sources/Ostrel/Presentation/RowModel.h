// A list for a view: rows of plain values, each with a key of its own. Main thread only.
//
// The owner sets the whole list; the model works out which rows came, went, moved or changed, so that a view
// keeps its place and can animate what happened.
#pragma once

#include <QAbstractListModel>
#include <QtQmlIntegration>
#include <vector>

namespace ostrel {

struct Row {
  QString key;          // unique in the list
  QVariantList values;  // in the order of the model's roles
  bool operator==(const Row&) const = default;
};

class RowModel final : public QAbstractListModel {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by its bridge")
  Q_PROPERTY(int count READ count NOTIFY countChanged)

 public:
  // The views know the values by the names of `roles`; the key goes by "key".
  explicit RowModel(std::vector<QByteArray> roles, QObject* parent = nullptr);

  void set(const std::vector<Row>& rows);
  const std::vector<Row>& rows() const { return rows_; }

  int count() const { return static_cast<int>(rows_.size()); }
  int rowCount(const QModelIndex& parent = {}) const override { return parent.isValid() ? 0 : count(); }
  QVariant data(const QModelIndex& index, int role) const override;
  QHash<int, QByteArray> roleNames() const override;

 Q_SIGNALS:
  void countChanged();

 private:
  void removeMissing(const std::vector<Row>& rows);

  std::vector<QByteArray> roles_;
  std::vector<Row> rows_;
};

}  // namespace ostrel
