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

#include "Codex/CodexCardModel.h"
#include "QuestionBridge.h"
#include "RowModel.h"

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

class CodexCardBridge final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the program")
  Q_PROPERTY(QString title READ title CONSTANT)
  Q_PROPERTY(QStringList words READ words CONSTANT)
  Q_PROPERTY(QString command READ command NOTIFY changed)
  Q_PROPERTY(QString folder READ folder NOTIFY changed)
  Q_PROPERTY(QString writeAccess READ writeAccess NOTIFY changed)
  Q_PROPERTY(ostrel::RowModel* diff READ diff CONSTANT)
  Q_PROPERTY(QString changesText READ changesText NOTIFY changed)
  Q_PROPERTY(QString access READ access CONSTANT)
  Q_PROPERTY(QString tool READ tool CONSTANT)
  Q_PROPERTY(QString toolArguments READ toolArguments CONSTANT)
  Q_PROPERTY(QQmlListProperty<ostrel::QuestionBridge> questions READ questions CONSTANT)
  Q_PROPERTY(QQmlListProperty<ostrel::FormFieldBridge> fields READ fields CONSTANT)
  Q_PROPERTY(QString unsupported READ unsupported CONSTANT)
  Q_PROPERTY(QString submitTitle READ submitTitle CONSTANT)
  Q_PROPERTY(bool deciding READ deciding CONSTANT)
  Q_PROPERTY(bool skippable READ skippable CONSTANT)
  Q_PROPERTY(bool hasLink READ hasLink CONSTANT)
  Q_PROPERTY(QString link READ link CONSTANT)
  Q_PROPERTY(bool linkOpened READ linkOpened NOTIFY changed)
  Q_PROPERTY(ostrel::RowModel* choices READ choices CONSTANT)
  Q_PROPERTY(bool sent READ sent NOTIFY changed)
  Q_PROPERTY(QString problem READ problem NOTIFY changed)

 public:
  struct Operations {
    std::function<void(const CodexRequest&, std::string result)> give;
    std::function<void(const std::string& link)> open;
  };
  CodexCardBridge(const CodexRequest& request, Operations operations, QObject* parent);

  const CodexRequest& request() const { return model_.request(); }
  // What is known of it beside the request: the item it refers to, and what becomes of the answer.
  void show(const std::optional<std::string>& item, bool sent, const std::string& replyError);

  QString title() const;
  QStringList words() const;
  QString command() const;
  QString folder() const;
  QString writeAccess() const;
  RowModel* diff() { return &diff_; }
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
  // Whether to press a choice is all that is asked.
  bool deciding() const { return model_.card().step == CodexCard::Step::none; }
  bool skippable() const { return model_.card().skippable; }
  QString link() const;  // its address, as it would be opened
  bool hasLink() const { return model_.card().step == CodexCard::Step::link; }
  bool linkOpened() const { return model_.isLinkOpened(); }
  RowModel* choices() { return &choices_; }
  bool sent() const { return sent_; }
  QString problem() const;  // what is missing, or why an answer was not sent

  Q_INVOKABLE void choose(const QString& key);
  Q_INVOKABLE void submit();
  Q_INVOKABLE void skip();
  Q_INVOKABLE void openLink();
  Q_INVOKABLE void linkDone();

 Q_SIGNALS:
  void changed();

 private:
  void give(std::string result);
  void showQuestions();
  void showDiff();

  CodexCardModel model_;
  const Operations operations_;
  QList<QuestionBridge*> questions_;
  QList<FormFieldBridge*> fields_;
  RowModel diff_{{"kind", "text"}};
  RowModel choices_{{"title"}};
  bool sent_ = false;
  std::string replyError_;
};

}  // namespace ostrel
