// The two cards for what Claude Code asks: each shows one request, and is made anew for the next one. What an
// answer is, is decided by the models; here it is only handed on. Main thread only.
#pragma once

#include <QObject>
#include <QQmlListProperty>
#include <QtQmlIntegration>
#include <functional>

#include "Claude/PermissionCards.h"
#include "QuestionBridge.h"

namespace ostrel {

// Takes the answer that the person has given.
using GiveClaude = std::function<void(const ClaudePermissionRequest&, const ClaudePermissionAnswer&)>;

class PermissionCardBridge final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the program")
  Q_PROPERTY(QString heading READ heading CONSTANT)
  Q_PROPERTY(QString detail READ detail CONSTANT)
  Q_PROPERTY(QString alwaysLine READ alwaysLine CONSTANT)
  Q_PROPERTY(QString instead READ instead WRITE setInstead NOTIFY insteadChanged)

 public:
  PermissionCardBridge(const ClaudePermissionRequest& request, GiveClaude give, QObject* parent);

  QString heading() const;
  QString detail() const;
  QString alwaysLine() const;  // empty where "always" is not on offer
  QString instead() const { return instead_; }
  void setInstead(const QString& text);

  Q_INVOKABLE void yes() { give_(model_.request(), model_.yes()); }
  Q_INVOKABLE void always() { give_(model_.request(), model_.always()); }
  Q_INVOKABLE void no() { give_(model_.request(), model_.no()); }
  // Return in the field for what to do instead.
  Q_INVOKABLE void tell();

 Q_SIGNALS:
  void insteadChanged();

 private:
  const PermissionCardModel model_;
  const GiveClaude give_;
  QString instead_;
};

class QuestionCardBridge final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the program")
  Q_PROPERTY(QString heading READ heading CONSTANT)
  Q_PROPERTY(QQmlListProperty<ostrel::QuestionBridge> questions READ questions CONSTANT)
  Q_PROPERTY(bool complete READ complete NOTIFY changed)
  Q_PROPERTY(bool typing READ typing NOTIFY changed)

 public:
  enum Key { Up, Down, Tab, Return };
  Q_ENUM(Key)

  QuestionCardBridge(const ClaudePermissionRequest& request, GiveClaude give, QObject* parent);

  QString heading() const;
  QQmlListProperty<QuestionBridge> questions() { return {this, &questions_}; }
  const QList<QuestionBridge*>& questionList() const { return questions_; }
  bool complete() const { return model_.complete(); }
  // The keyboard is in the field for an own answer.
  bool typing() const;

  Q_INVOKABLE void send() { give(model_.send()); }
  Q_INVOKABLE void press(ostrel::QuestionCardBridge::Key key);

 Q_SIGNALS:
  void changed();
  void moved();  // where the keyboard acts

 private:
  void choose(std::size_t question, int option);
  void type(std::size_t question, const QString& text);
  void focusOwn(std::size_t question);
  void give(const std::optional<ClaudePermissionAnswer>& answer);
  void refresh();

  QuestionCardModel model_;
  const GiveClaude give_;
  QList<QuestionBridge*> questions_;
};

}  // namespace ostrel
