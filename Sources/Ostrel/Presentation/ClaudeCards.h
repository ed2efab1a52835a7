// The two cards for what Claude Code asks: each shows one request, and is made anew for the next one. What an
// answer is, is decided by the request; here it is only handed on. Main thread only.
#pragma once

#include <QObject>
#include <QQmlListProperty>
#include <QtQmlIntegration>

#include "Claude/PermissionCards.h"
#include "DiffRows.h"
#include "QuestionBridge.h"
#include "RequestCard.h"

namespace ostrel {

class PermissionCardBridge final : public ostrel::RequestCard {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the program")
  Q_PROPERTY(QString purpose READ purpose CONSTANT)
  Q_PROPERTY(QString detail READ detail CONSTANT)
  Q_PROPERTY(ostrel::RowList* diff READ diff CONSTANT)
  Q_PROPERTY(QString alwaysLine READ alwaysLine CONSTANT)
  Q_PROPERTY(QString instead READ instead WRITE setInstead NOTIFY insteadChanged)

 public:
  PermissionCardBridge(const ClaudePermissionRequest& request, Context context, QObject* parent);

  QString purpose() const;  // as Claude describes it; may be empty
  QString detail() const;
  ListModel<DiffRow>* diff() { return diff_.rows(); }
  QString alwaysLine() const;  // empty where "always" is not on offer
  QString instead() const { return instead_; }
  void setInstead(const QString& text);

  // "allow", "always" or "deny".
  Q_INVOKABLE void choose(const QString& choice) { pick(choice.toStdString()); }
  // Return in the field for what to do instead.
  Q_INVOKABLE void tell();
  Q_INVOKABLE void unfold(const QString& key) { diff_.unfold(key); }

 Q_SIGNALS:
  void insteadChanged();

 private:
  std::vector<RequestChoice> choicesNow() const override { return model_.request().choices(); }
  void pick(const std::string& choice) override { give({.choice = choice}, choicesNow()); }

  const PermissionCardModel model_;
  DiffRows diff_;
  QString instead_;
};

class QuestionCardBridge final : public ostrel::RequestCard {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the program")
  Q_PROPERTY(QQmlListProperty<ostrel::QuestionBridge> questions READ questions CONSTANT)
  Q_PROPERTY(bool complete READ complete NOTIFY changed)
  Q_PROPERTY(bool typing READ typing NOTIFY changed)

 public:
  enum Key { Up, Down, Tab, Return };
  Q_ENUM(Key)

  QuestionCardBridge(const ClaudePermissionRequest& request, Context context, QObject* parent);

  QQmlListProperty<QuestionBridge> questions() { return {this, &questions_}; }
  const QList<QuestionBridge*>& questionList() const { return questions_; }
  bool complete() const { return model_.complete(); }
  // The keyboard is in the field for an own answer.
  bool typing() const;

  void submit() override;
  Q_INVOKABLE void press(ostrel::QuestionCardBridge::Key key);

 Q_SIGNALS:
  void changed();
  void moved();  // where the keyboard acts

 private:
  std::vector<RequestChoice> choicesNow() const override { return model_.request().choices(); }
  void pick(const std::string&) override {}  // it takes answers only
  void choose(std::size_t question, int option);
  void type(std::size_t question, const QString& text);
  void focusOwn(std::size_t question);
  void send(const std::optional<RequestAnswer>& answer);
  void refresh();

  QuestionCardModel model_;
  QList<QuestionBridge*> questions_;
};

}  // namespace ostrel
