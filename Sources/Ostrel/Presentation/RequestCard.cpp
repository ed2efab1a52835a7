#include "RequestCard.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "Runtime/Failure.h"
#include "Words.h"

namespace ostrel {

RequestCard::RequestCard(Context context, std::string request, QObject* parent)
    : QObject(parent), context_(std::move(context)), request_(std::move(request)) {
  settle();
}

QString RequestCard::problem() const { return problem_; }

void RequestCard::setWholeSeen(bool seen) {
  if (std::exchange(wholeSeen_, seen) != seen) Q_EMIT wholeSeenChanged();
}

void RequestCard::setHeading(const QString& heading) {
  if (std::exchange(heading_, heading) != heading) Q_EMIT headingChanged();
}

QString RequestCard::keyOf(const QString& choice) const {
  const auto choices = choicesNow();
  const auto keys = choiceKeys(choices);
  for (std::size_t i = 0; i < choices.size(); ++i) {
    if (words::of(choices[i].id) == choice) return words::of(keys[i]);
  }
  return {};
}

bool RequestCard::press(const QString& key) {
  const auto choices = choicesNow();
  const auto keys = choiceKeys(choices);
  const auto found = std::ranges::find(keys, key.toStdString());
  if (key.isEmpty() || found == keys.end()) return false;
  pick(choices[static_cast<std::size_t>(found - keys.begin())].id);
  return true;
}

void RequestCard::give(const RequestAnswer& answer, const std::vector<RequestChoice>& offered) {
  if (!settled()) return;
  QString problem;
  const auto choice = std::ranges::find(offered, answer.choice, &RequestChoice::id);
  if (choice != offered.end() && choice->grants && !wholeSeen_) {
    problem = QStringLiteral("Read it to its end before you allow it.");
  } else {
    try {
      context_.answer(request_, answer);
    } catch (const Failure& failure) {
      problem = words::shown(failure.message());
    }
  }
  say(problem);
}

void RequestCard::say(const QString& problem) {
  if (std::exchange(problem_, problem) != problem) Q_EMIT problemChanged();
}

}  // namespace ostrel
