// One question of a card: what may be chosen, what was chosen, and the answer that was typed. The card that
// it belongs to keeps all of that; this shows it. Main thread only.
#pragma once

#include <QObject>
#include <QtQmlIntegration>
#include <functional>
#include <vector>

#include "RowModel.h"

namespace ostrel {

class QuestionBridge final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by its card")
  Q_PROPERTY(QString header READ header CONSTANT)
  Q_PROPERTY(QString question READ question CONSTANT)
  Q_PROPERTY(bool multiple READ multiple CONSTANT)
  Q_PROPERTY(bool takesText READ takesText CONSTANT)
  Q_PROPERTY(bool secret READ secret CONSTANT)
  Q_PROPERTY(ostrel::RowModel* options READ options CONSTANT)
  Q_PROPERTY(QString own READ own WRITE setOwn NOTIFY ownChanged)
  Q_PROPERTY(bool ownFocused READ ownFocused NOTIFY ownFocusedChanged)

 public:
  struct Option {
    QString label;
    QString description;
    bool chosen = false;
    bool highlighted = false;
  };
  struct Words {
    QString header;
    QString question;
    bool multiple = false;
    bool takesText = true;  // an answer of one's own
    bool secret = false;
  };
  struct Operations {
    std::function<void(int option)> choose;
    std::function<void(const QString& text)> type;
    std::function<void()> focusOwn;  // may be empty
  };
  QuestionBridge(Words words, Operations operations, QObject* parent);

  QString header() const { return words_.header; }
  QString question() const { return words_.question; }
  bool multiple() const { return words_.multiple; }
  bool takesText() const { return words_.takesText; }
  bool secret() const { return words_.secret; }
  RowModel* options() { return &options_; }
  QString own() const { return own_; }
  bool ownFocused() const { return ownFocused_; }

  // What the card knows now.
  void show(const std::vector<Option>& options, const QString& own, bool ownFocused);

  void setOwn(const QString& text);
  Q_INVOKABLE void choose(int option) { operations_.choose(option); }
  // The person has put the cursor into the field for an own answer.
  Q_INVOKABLE void focusOwn();

 Q_SIGNALS:
  void ownChanged();
  void ownFocusedChanged();

 private:
  const Words words_;
  const Operations operations_;
  RowModel options_{{"label", "description", "chosen", "highlighted"}};
  QString own_;
  bool ownFocused_ = false;
};

}  // namespace ostrel
