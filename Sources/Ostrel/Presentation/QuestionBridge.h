// One question of a card: what may be chosen, what was chosen, and the answer that was typed. The card that
// it belongs to keeps all of that; this shows it. Main thread only.
#pragma once

#include <QObject>
#include <QtQmlIntegration>
#include <functional>
#include <vector>

#include "ListModel.h"

namespace ostrel {

// Something to choose.
struct OptionRow {
  Q_GADGET
  Q_PROPERTY(QString key MEMBER key)
  Q_PROPERTY(QString label MEMBER label)
  Q_PROPERTY(QString description MEMBER description)
  Q_PROPERTY(bool chosen MEMBER chosen)
  Q_PROPERTY(bool highlighted MEMBER highlighted)

 public:
  QString key;  // its place
  QString label;
  QString description;  // may be empty
  bool chosen = false;
  bool highlighted = false;  // the keyboard acts on it
  bool operator==(const OptionRow&) const = default;
};

class QuestionBridge final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by its card")
  Q_PROPERTY(QString header READ header CONSTANT)
  Q_PROPERTY(QString question READ question CONSTANT)
  Q_PROPERTY(bool multiple READ multiple CONSTANT)
  Q_PROPERTY(bool takesText READ takesText CONSTANT)
  Q_PROPERTY(bool secret READ secret CONSTANT)
  Q_PROPERTY(ostrel::RowList* options READ options CONSTANT)
  Q_PROPERTY(QString own READ own WRITE setOwn NOTIFY ownChanged)
  Q_PROPERTY(bool ownFocused READ ownFocused NOTIFY ownFocusedChanged)

 public:
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
  ListModel<OptionRow>* options() { return &options_; }
  QString own() const { return own_; }
  bool ownFocused() const { return ownFocused_; }

  // What the card knows now. Options get their places as keys.
  void show(std::vector<OptionRow> options, const QString& own, bool ownFocused);

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
  ListModel<OptionRow> options_;
  QString own_;
  bool ownFocused_ = false;
};

}  // namespace ostrel
