// Changes of files as rows of a view: a heading for each file with its counts, and its lines; of a long
// change the first ones, and a row that unfolds the rest. Main thread only.
#pragma once

#include <QSet>
#include <cstddef>
#include <vector>

#include "Agents/FileChange.h"
#include "ListModel.h"

namespace ostrel {

struct DiffRow {
  Q_GADGET
  Q_PROPERTY(QString key MEMBER key)
  Q_PROPERTY(QString kind MEMBER kind)
  Q_PROPERTY(QString text MEMBER text)

 public:
  QString key;   // the places of its file and line
  QString kind;  // "file", "added", "removed", "place", "same" or "fold"
  QString text;  // a heading, a line with its sign, or what the fold hides
  bool operator==(const DiffRow&) const = default;
};

class DiffRows {
 public:
  // A change of more lines is folded, and shows this many of them.
  static constexpr std::size_t kUnfolded = 30;
  static constexpr std::size_t kFolded = 10;

  ListModel<DiffRow>* rows() { return &rows_; }
  void set(std::vector<FileChange> changes);
  // The person wants to see all of the change whose row of the kind "fold" has this key.
  void unfold(const QString& key);

 private:
  void fill();

  std::vector<FileChange> changes_;
  QSet<QString> unfolded_;  // keys of fold rows
  ListModel<DiffRow> rows_;
};

}  // namespace ostrel
