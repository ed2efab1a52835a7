// The blocks of a conversation as rows of its view. Main thread only.
#pragma once

#include <QObject>
#include <QString>
#include <cstddef>
#include <vector>

#include "App/ConversationBlocks.h"

namespace ostrel {

struct ConversationRow {
  Q_GADGET
  Q_PROPERTY(QString key MEMBER key)
  Q_PROPERTY(int kind MEMBER kind)
  Q_PROPERTY(bool person MEMBER person)
  Q_PROPERTY(bool first MEMBER first)
  Q_PROPERTY(bool last MEMBER last)
  Q_PROPERTY(bool running MEMBER running)
  Q_PROPERTY(QString body MEMBER body)
  Q_PROPERTY(QString label MEMBER label)
  Q_PROPERTY(QString caption MEMBER caption)
  Q_PROPERTY(int found MEMBER found)

 public:
  // Where somebody looks for words.
  enum Found { none, holds, current };

  QString key;           // of its block
  int kind = 0;          // the number of its `ConversationBlock::Kind`
  bool person = false;   // said by the person
  bool first = false;    // in its message
  bool last = false;     // in its message
  bool running = false;  // a tool that has not ended
  QString body;          // what is shown of it, of a notice what its fold hides
  QString label;         // the language of code; the line of a notice
  QString caption;       // who speaks and when, where that changes; often empty
  int found = none;      // a `Found`
  bool operator==(const ConversationRow&) const = default;
};

// `speaker` is what the agent is called. `found` are the places of the blocks that hold what somebody looks
// for, `current` the one among them that they look at, or -1.
std::vector<ConversationRow> conversationRows(const std::vector<ConversationBlock>& blocks,
                                              const QString& speaker, const std::vector<std::size_t>& found,
                                              int current);

}  // namespace ostrel
