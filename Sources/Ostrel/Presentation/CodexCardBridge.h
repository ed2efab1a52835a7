// The card for one request of Codex, and the fields of its form. What may be answered and whether what was
// entered will do, is decided by the model; here it is only shown and handed on. Main thread only.
#pragma once

#include <QObject>
#include <QQmlListProperty>
#include <QStringList>
#include <QtQmlIntegration>
#include <functional>
#include <optional>
#include <string>

#include "Client/OpenRequests.h"
#include "Codex/CodexCardModel.h"
#include "DiffRows.h"
#include "ListModel.h"
#include "QuestionBridge.h"
#include "RequestCard.h"

namespace ostrel {

// One field of a form: typed, or picked among values.
class FormFieldBridge final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by its card")
  Q_PROPERTY(QString label MEMBER label CONSTANT)
  Q_PROPERTY(QString placeholder MEMBER placeholder CONSTANT)
  Q_PROPERTY(bool picks READ picks CONSTANT)
  Q_PROPERTY(QStringList choices MEMBER choices CONSTANT)
  Q_PROPERTY(QString text READ text WRITE setText NOTIFY changed)
  Q_PROPERTY(int choice READ choice WRITE setChoice NOTIFY changed)

 public:
  FormFieldBridge(const CodexCard::Field& field, CodexCardModel& model, QObject* parent);

  QString label;
  QString placeholder;
  QStringList choices;  // to pick from, "Choose" first; empty for a field that is typed

  bool picks() const { return !choices.empty(); }
  QString text() const;
  void setText(const QString& text);
  int choice() const;
  void setChoice(int choice);

 Q_SIGNALS:
  void changed();

 private:
  const std::string key_;
  std::vector<std::string> values_;  // what the choices stand for
  CodexCardModel& model_;
};

// A button that answers the request.
struct ChoiceButtonRow {
  Q_GADGET
  Q_PROPERTY(QString key MEMBER key)
  Q_PROPERTY(QString title MEMBER title)
  Q_PROPERTY(QString shortcut MEMBER shortcut)
  Q_PROPERTY(bool grants MEMBER grants)

 public:
  QString key;  // the id of its `RequestChoice`
  QString title;
  QString shortcut;     // the letter under which it may be pressed; may be empty
  bool grants = false;  // something is allowed by it: it waits until the request was seen whole
  bool operator==(const ChoiceButtonRow&) const = default;
};

class CodexCardBridge final : public ostrel::RequestCard {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the program")
  Q_PROPERTY(QStringList words READ words CONSTANT)
  Q_PROPERTY(QString command READ command NOTIFY changed)
  Q_PROPERTY(QString folder READ folder NOTIFY changed)
  Q_PROPERTY(QString writeAccess READ writeAccess NOTIFY changed)
  Q_PROPERTY(ostrel::RowList* diff READ diff CONSTANT)
  Q_PROPERTY(QString changesText READ changesText NOTIFY changed)
  Q_PROPERTY(QString access READ access CONSTANT)
  Q_PROPERTY(QString tool READ tool CONSTANT)
  Q_PROPERTY(QString toolArguments READ toolArguments CONSTANT)
  Q_PROPERTY(QQmlListProperty<ostrel::QuestionBridge> questions READ questions CONSTANT)
  Q_PROPERTY(QQmlListProperty<ostrel::FormFieldBridge> fields READ fields CONSTANT)
  Q_PROPERTY(QString unsupported READ unsupported CONSTANT)
  Q_PROPERTY(QString submitTitle READ submitTitle CONSTANT)
  Q_PROPERTY(bool submitGrants READ submitGrants CONSTANT)
  Q_PROPERTY(bool deciding READ deciding CONSTANT)
  Q_PROPERTY(bool skippable READ skippable CONSTANT)
  Q_PROPERTY(bool hasLink READ hasLink CONSTANT)
  Q_PROPERTY(QString link READ link CONSTANT)
  Q_PROPERTY(bool linkOpened READ linkOpened NOTIFY changed)
  Q_PROPERTY(ostrel::RowList* choices READ choices CONSTANT)
  Q_PROPERTY(bool sent READ sent NOTIFY changed)

 public:
  // `open` opens the request's link, or throws `Failure`.
  CodexCardBridge(const OpenRequest& request, Context context, std::function<void()> open, QObject* parent);

  const CodexRequest& request() const { return model_.request(); }
  // The request as it is known now: the item that it refers to, and what becomes of the answer.
  void show(const CodexAsked& asked);

  QStringList words() const;
  QString command() const;
  QString folder() const;
  QString writeAccess() const;
  ListModel<DiffRow>* diff() { return diff_.rows(); }
  QString changesText() const;  // where there are no lines to show
  QString access() const;
  QString tool() const;
  QString toolArguments() const;
  QQmlListProperty<QuestionBridge> questions() { return {this, &questions_}; }
  QQmlListProperty<FormFieldBridge> fields() { return {this, &fields_}; }
  const QList<QuestionBridge*>& questionList() const { return questions_; }
  const QList<FormFieldBridge*>& fieldList() const { return fields_; }
  QString unsupported() const;
  QString submitTitle() const;  // empty where nothing is entered
  bool submitGrants() const;
  // Whether to press a choice is all that is asked.
  bool deciding() const { return model_.card().step == CodexCard::Step::none; }
  bool skippable() const { return model_.card().skippable; }
  QString link() const;  // its address, as it would be opened
  bool hasLink() const { return model_.card().step == CodexCard::Step::link; }
  bool linkOpened() const;
  ListModel<ChoiceButtonRow>* choices() { return &choices_; }
  bool sent() const { return sent_; }
  bool waits() const override { return !sent_; }
  QString problem() const override;  // what is missing, or why an answer was not sent

  Q_INVOKABLE void choose(const QString& key);
  void submit() override;
  Q_INVOKABLE void skip() { pick("skip"); }
  Q_INVOKABLE void openLink();
  Q_INVOKABLE void linkDone() { pick("done"); }
  Q_INVOKABLE void unfold(const QString& key) { diff_.unfold(key); }

 Q_SIGNALS:
  void changed();

 private:
  const RequestChoice* choiceOf(std::string_view id) const;
  std::vector<RequestChoice> choicesNow() const override { return model_.card().choices; }
  void pick(const std::string& choice) override { send({.choice = choice}); }
  void send(const RequestAnswer& answer);
  void showQuestions();
  void showParts();

  CodexCardModel model_;
  const std::function<void()> open_;
  QList<QuestionBridge*> questions_;
  QList<FormFieldBridge*> fields_;
  DiffRows diff_;
  ListModel<ChoiceButtonRow> choices_;
  bool sent_ = false;
  std::string error_;
};

}  // namespace ostrel
