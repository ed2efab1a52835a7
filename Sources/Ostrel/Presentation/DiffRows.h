// Changes of files as rows of a view: a heading for each file with its counts, and its lines; of a long
// change the first ones, and a row that unfolds the rest. Main thread only.
#pragma once

#include <QSet>
#include <cstddef>
#include <vector>

#include "Agents/FileChange.h"
#include "RowModel.h"

namespace ostrel {

class DiffRows {
 public:
  // A change of more lines is folded, and shows this many of them.
  static constexpr std::size_t kUnfolded = 30;
  static constexpr std::size_t kFolded = 10;

  // Of each row its "kind" (file, added, removed, place, same, fold) and its "text".
  RowModel* rows() { return &rows_; }
  void set(std::vector<FileChange> changes);
  // The person wants to see all of the change whose row of the kind "fold" has this key.
  void unfold(const QString& key);

 private:
  void fill();

  std::vector<FileChange> changes_;
  QSet<QString> unfolded_;  // keys of fold rows
  RowModel rows_{{"kind", "text"}};
};

}  // namespace ostrel
