// The parts of the windows that need no display.
#include <QCoreApplication>
#include <QTimer>
#include <random>
#include <unistd.h>

#include <gtest/gtest.h>

#include "ListModel.h"
#include "NestedLoop.h"
#include "Offscreen.h"
#include "Support/Seed.h"
#include "X11Input.h"

namespace ostrel {

struct TestRow {
  Q_GADGET
  Q_PROPERTY(QString key MEMBER key)
  Q_PROPERTY(int light MEMBER light)
  Q_PROPERTY(QString title MEMBER title)

 public:
  QString key;
  int light = 0;
  QString title;
  bool operator==(const TestRow&) const = default;
};

namespace {

using namespace std::chrono_literals;

// A list as a view keeps it, made of what the model tells alone.
class Follower {
 public:
  explicit Follower(const ListModel<TestRow>& model) : model_(model) {
    using Model = QAbstractItemModel;
    QObject::connect(&model, &Model::rowsInserted, &model, [this](const QModelIndex&, int first, int last) {
      for (int i = first; i <= last; ++i) keys.insert(i, at(i));
    });
    QObject::connect(&model, &Model::rowsRemoved, &model, [this](const QModelIndex&, int first, int last) {
      keys.remove(first, last - first + 1);
    });
    QObject::connect(&model, &Model::rowsMoved, &model,
                     [this](const QModelIndex&, int from, int, const QModelIndex&, int to) {
                       keys.move(from, to > from ? to - 1 : to);
                     });
    QObject::connect(&model, &Model::dataChanged, &model,
                     [this](const QModelIndex& first) { changed.append(first.row()); });
  }
  QList<QString> keys;
  QList<int> changed;

 private:
  QString at(int row) const { return model_.rows()[static_cast<std::size_t>(row)].key; }
  const ListModel<TestRow>& model_;
};

TEST(ListModelTest, AViewThatFollowsItsWordsAlwaysHasItsRows) {
  ListModel<TestRow> model;
  Follower view(model);
  std::mt19937 random(randomSeed());
  for (int round = 0; round < 300; ++round) {
    std::vector<TestRow> rows;
    for (int key = 0; key < 9; ++key) {
      if (random() % 3 != 0) rows.push_back({QString::number(key), static_cast<int>(random() % 2), {}});
    }
    std::ranges::shuffle(rows, random);
    model.set(rows);
    ASSERT_EQ(model.rows(), rows);
    ASSERT_EQ(model.property("count").toInt(), static_cast<int>(rows.size()));
    QList<QString> keys;
    for (const TestRow& row : rows) keys.append(row.key);
    ASSERT_EQ(view.keys, keys);
  }
}

TEST(ListModelTest, OnlyWhatChangedIsToldAndViewsFindItByItsName) {
  ListModel<TestRow> model;
  const auto a = QStringLiteral("a"), b = QStringLiteral("b"), title = QStringLiteral("Title");
  model.set({{a, 1, title}, {b, 1, title}});
  Follower view(model);
  int counts = 0;
  QObject::connect(&model, &RowList::countChanged, &model, [&] { ++counts; });
  model.set({{a, 1, title}, {b, 1, title}});
  EXPECT_EQ(view.changed, QList<int>());
  model.set({{a, 1, title}, {b, 3, title}});
  EXPECT_EQ(view.changed, QList<int>{1});
  EXPECT_EQ(counts, 0);
  const auto names = model.roleNames();
  EXPECT_EQ(names.size(), 3);
  EXPECT_EQ(model.data(model.index(1), names.key("light")), 3);
  EXPECT_EQ(model.data(model.index(0), names.key("title")), title);
  EXPECT_EQ(model.data(model.index(0), names.key("key")), a);
  EXPECT_FALSE(model.data(model.index(2), names.key("light")).isValid());
  EXPECT_FALSE(model.data(model.index(0), Qt::DisplayRole).isValid());
}

TEST(ModifierTrackerTest, OnlyControlByItselfCounts) {
  using Key = ModifierTracker::Key;
  using enum ModifierState;
  ModifierTracker keys;
  EXPECT_TRUE(keys.pressed(Key::control, 37));
  EXPECT_EQ(keys.state(), controlAlone);
  EXPECT_FALSE(keys.pressed(Key::control, 105)) << "the other Control changes nothing";
  EXPECT_FALSE(keys.released(105));
  EXPECT_TRUE(keys.released(37));
  EXPECT_EQ(keys.state(), none);
  EXPECT_FALSE(keys.released(37)) << "some keyboards tell of a release twice";

  keys.pressed(Key::control, 37);
  EXPECT_TRUE(keys.pressed(Key::other, 38));
  EXPECT_EQ(keys.state(), other);
  EXPECT_FALSE(keys.released(38)) << "Control with a letter stays spoiled until it is up";
  EXPECT_TRUE(keys.released(37));
  EXPECT_EQ(keys.state(), none);

  keys.pressed(Key::modifier, 50);
  EXPECT_FALSE(keys.pressed(Key::control, 37));
  EXPECT_FALSE(keys.released(50));
  EXPECT_EQ(keys.state(), other) << "Shift was in it";
  keys.released(37);

  EXPECT_TRUE(keys.spoiled()) << "a click";
  EXPECT_TRUE(keys.pressed(Key::control, 37));
  EXPECT_EQ(keys.state(), controlAlone) << "before the tap, not in it";
}

TEST(NestedLoopTest, TimersPostsAndDescriptorsRunInsideQtsLoop) {
  QApplication& application = offscreen();
  EpollLoop loop;
  const NestedLoop nested(loop);
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  std::string order;
  const Watch watch = loop.watch(ends[0], {.read = true}, [&](Interest) {
    char byte;
    ASSERT_EQ(::read(ends[0], &byte, 1), 1);
    order += byte;
    // A dialog's loop inside a callback: neither it nor what it serves may spin or stop for good.
    QTimer::singleShot(0, &application, [&] { order += 'q'; });
    QCoreApplication::processEvents();
    loop.post([&] { QCoreApplication::quit(); });
  });
  Timer timer;
  loop.post([&] {
    order += 'p';
    timer = loop.after(1ms, [&] {
      order += 't';
      ASSERT_EQ(::write(ends[1], "w", 1), 1);
    });
  });
  QTimer::singleShot(20s, &application, [] { QCoreApplication::exit(1); });
  EXPECT_EQ(QCoreApplication::exec(), 0);
  EXPECT_EQ(order, "ptwq");
  ::close(ends[0]);
  ::close(ends[1]);
}

}  // namespace
}  // namespace ostrel

#include "PresentationTests.moc"
