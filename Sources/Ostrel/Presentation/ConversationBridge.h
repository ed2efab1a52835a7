// What the conversation window shows and asks for: one agent, what was said, its terminal. Main thread only.
//
// What it shows stays when the agent ends, until the window closes or shows another.
#pragma once

#include <QObject>
#include <QPoint>
#include <QtQmlIntegration>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "App/ConversationBlocks.h"
#include "Client/AgentActions.h"
#include "Client/ConversationSource.h"
#include "ConversationRows.h"
#include "EdgeBridges.h"
#include "Platform/Openers.h"
#include "RequestsBridge.h"
#include "Runtime/Background.h"
#include "Runtime/Task.h"

namespace ostrel {

// What the bridge asks of the core beside the model. All of it outlives the bridge.
struct ConversationParts {
  ConversationSource& open;
  AgentActions& actions;
  RequestSource& requests;
  UrlOpener& urls;             // for links: the web, mail, files
  std::filesystem::path home;  // that a link's "~" means
};

class ConversationBridge final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the program")
  Q_PROPERTY(QString title READ title NOTIFY changed)
  Q_PROPERTY(QString status READ status NOTIFY changed)
  Q_PROPERTY(QString details READ details NOTIFY changed)
  Q_PROPERTY(QString session READ session NOTIFY changed)
  Q_PROPERTY(QString speaker READ speaker NOTIFY changed)
  Q_PROPERTY(int light READ light NOTIFY changed)
  Q_PROPERTY(bool ended READ ended NOTIFY changed)
  Q_PROPERTY(bool hasTerminal READ hasTerminal NOTIFY changed)
  Q_PROPERTY(bool showsTerminal READ showsTerminal WRITE setShowsTerminal NOTIFY changed)
  Q_PROPERTY(bool showsActivity READ showsActivity WRITE setShowsActivity NOTIFY changed)
  Q_PROPERTY(bool linkable READ linkable NOTIFY changed)
  Q_PROPERTY(bool linked READ linked NOTIFY changed)
  Q_PROPERTY(ostrel::RowList* blocks READ blocks CONSTANT)
  Q_PROPERTY(ostrel::RequestsBridge* requests READ requests CONSTANT)
  Q_PROPERTY(bool loading READ loading NOTIFY changed)
  Q_PROPERTY(QString notice READ notice NOTIFY changed)
  Q_PROPERTY(QString output READ output NOTIFY outputChanged)
  Q_PROPERTY(bool outputLoaded READ outputLoaded NOTIFY outputChanged)
  Q_PROPERTY(QString outputError READ outputError NOTIFY outputChanged)
  Q_PROPERTY(QString message READ message NOTIFY messageChanged)
  Q_PROPERTY(QString findText READ findText WRITE find NOTIFY findChanged)
  Q_PROPERTY(int findCount READ findCount NOTIFY findChanged)
  Q_PROPERTY(int findPlace READ findPlace NOTIFY findChanged)

 public:
  enum Kind { Prose, Words, Code, Tool, Activity };
  Q_ENUM(Kind)

  ConversationBridge(MainLoop& loop, Background& pool, BridgeParts parts, ConversationParts sources,
                     FindTerminal findTerminal = {});

  // The window now shows this agent.
  void show(const HerdrAgent& agent);
  // Nobody sees it any more: nothing is followed until the next `show`.
  void closed() { followed_ = false; }

  QString title() const { return title_; }
  QString status() const { return status_; }
  QString details() const { return details_; }  // what it is and where it runs, in a line
  QString session() const { return session_; }  // branch, model and effort, as far as they are known
  QString speaker() const;                      // the agent, where it speaks
  int light() const { return static_cast<int>(light_); }
  bool ended() const { return ended_; }
  bool hasTerminal() const;  // one whose text can be read
  bool showsTerminal() const { return showsTerminal_; }
  void setShowsTerminal(bool shows);
  bool showsActivity() const { return showsActivity_; }
  void setShowsActivity(bool shows);
  bool linkable() const;  // the person may choose its conversation
  bool linked() const;    // and has
  ListModel<ConversationRow>* blocks() { return &rows_; }
  RequestsBridge* requests() { return &requests_; }  // what the agent asks
  bool loading() const { return loading_; }
  QString notice() const { return notice_; }
  QString output() const { return output_; }
  bool outputLoaded() const { return outputLoaded_ || !output_.isEmpty(); }
  QString outputError() const { return outputError_; }
  QString message() const { return message_; }  // what became of the last click, for a moment
  QString findText() const { return findText_; }
  int findCount() const { return static_cast<int>(found_.size()); }
  int findPlace() const { return findPlace_; }  // among those found, from 0; -1 for none

  Q_INVOKABLE void close() { parts_.edge.closeAgent(); }
  Q_INVOKABLE void next(bool down) { parts_.edge.openNextAgent(down); }
  Q_INVOKABLE void nextWaiting() { parts_.edge.openNextWaiting(); }
  // The window is that much higher while cards need the room.
  Q_INVOKABLE void makeRoom(qreal height) { parts_.edge.setAgentRoom(static_cast<int>(height)); }
  Q_INVOKABLE void menuShown(bool shown);
  Q_INVOKABLE void rename(const QString& title);
  Q_INVOKABLE void chooseConversation();
  Q_INVOKABLE void unlink();
  Q_INVOKABLE void openLink(const QString& link);
  Q_INVOKABLE void copy(const QString& text);
  Q_INVOKABLE void copyMessage(const QString& key);  // the one that the block is part of
  Q_INVOKABLE void copyConversation();
  // The window's size follows the pointer from now on, its right and upper edges stay.
  Q_INVOKABLE void beginResize();
  Q_INVOKABLE void resize();
  // Looks for words; an empty text ends it.
  void find(const QString& text);
  // Goes to the next or previous block that holds them, round and round.
  Q_INVOKABLE void findNext(bool forward);

 Q_SIGNALS:
  void changed();
  void outputChanged();
  void messageChanged();
  void findChanged();
  void shownAgent();     // another agent than before
  void wanted(int row);  // a found block is to be seen

 private:
  // What has to be read again.
  enum Concern : unsigned { kAgent = 1, kWords = 2, kScreen = 4, kAsked = 8, kEverything = 15 };
  void wantRefresh(unsigned concerns);
  void refresh(unsigned concerns = kEverything);
  void refreshAgent(const std::optional<HerdrAgent>& selected);
  void refreshWords();
  void refreshBlocks();
  void refreshRows();
  void forget();
  void showOutput(const QString& output, const QString& error, bool loaded);
  void say(QString words);
  void act(const std::function<void()>& action);
  Task<void> open(std::string link);

  Background& pool_;
  BridgeParts parts_;
  ConversationParts sources_;
  RequestsBridge requests_;
  std::optional<HerdrAgent> agent_;
  bool followed_ = false;
  bool ended_ = false;
  QString title_, status_, details_, session_, notice_, output_, outputError_, message_;
  AgentLight light_ = AgentLight::idle;
  bool loading_ = false;
  bool outputLoaded_ = false;
  bool showsTerminal_ = false;
  bool showsActivity_ = true;
  std::vector<ConversationBlock> blocks_;
  bool stale_ = true;    // they are to be made anew
  unsigned wanted_ = 0;  // concerns
  ListModel<ConversationRow> rows_;
  QString findText_;
  std::vector<std::size_t> found_;
  int findPlace_ = -1;
  QPoint resizeFrom_;
  Size resizeSize_;
  MainLoop& loop_;
  Timer messageTimer_;
  Timer firstWords_;
  Throttle throttle_;
  std::vector<Subscription> subscriptions_;
  TaskScope tasks_;
};

}  // namespace ostrel
