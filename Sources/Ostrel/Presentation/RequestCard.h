// What the cards of all requests have in common: how an answer goes out, and when none does. Main thread
// only.
#pragma once

#include <QObject>
#include <QtQmlIntegration>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Agents/RequestAnswer.h"
#include "Runtime/MainLoop.h"

namespace ostrel {

class RequestCard : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the program")
  Q_PROPERTY(QString heading READ heading NOTIFY headingChanged)
  Q_PROPERTY(QString problem READ problem NOTIFY problemChanged)
  Q_PROPERTY(bool wholeSeen READ wholeSeen WRITE setWholeSeen NOTIFY wholeSeenChanged)

 public:
  // For so long after a card has appeared or moved it takes no answer: it stands where something else was a
  // moment ago, and the second half of a double click would answer what nobody has read.
  static constexpr Duration kSettling = std::chrono::milliseconds(500);

  // What a card is made with. `answer` throws `Failure` in words for the person.
  struct Context {
    MainLoop& loop;
    std::function<void(const std::string& request, const RequestAnswer&)> answer;
  };

  // What is asked, in a line.
  QString heading() const { return heading_; }
  void setHeading(const QString& heading);
  // Why the last answer was not sent; empty where there is nothing to say.
  virtual QString problem() const;
  // Whether the person was shown everything that would be granted, down to its end. Until then nothing is.
  bool wholeSeen() const { return wholeSeen_; }
  void setWholeSeen(bool seen);

  // The card has appeared, moved, or grown.
  Q_INVOKABLE void settle() { settledAt_ = context_.loop.now() + kSettling; }
  bool settled() const { return context_.loop.now() >= settledAt_; }

  // The letter on the button of a choice; empty where it has none.
  Q_INVOKABLE QString keyOf(const QString& choice) const;
  // That letter was pressed: the same as a click on its button. False where none has it.
  bool press(const QString& key);
  // Sends all that was entered, or says what is missing.
  Q_INVOKABLE virtual void submit() {}
  // It waits for the person; one whose answer is on its way does not.
  virtual bool waits() const { return true; }

 Q_SIGNALS:
  void headingChanged();
  void problemChanged();
  void wholeSeenChanged();

 protected:
  RequestCard(Context context, std::string request, QObject* parent);

  virtual std::vector<RequestChoice> choicesNow() const = 0;
  virtual void pick(const std::string& choice) = 0;
  // Hands the answer over, or says why not. `choice` is that of the request which it makes.
  void give(const RequestAnswer& answer, const std::vector<RequestChoice>& offered);
  // What the person is told in place of the last problem.
  void say(const QString& problem);

 private:
  const Context context_;
  const std::string request_;
  QString heading_;
  QString problem_;
  bool wholeSeen_ = false;
  TimePoint settledAt_;
};

}  // namespace ostrel
