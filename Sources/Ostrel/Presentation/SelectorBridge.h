// What the agent list shows and asks for. Main thread only.
#pragma once

#include <QList>
#include <QObject>
#include <QStringList>
#include <QtQmlIntegration>
#include <map>
#include <string>
#include <vector>

#include "Client/OpenRequests.h"
#include "EdgeBridges.h"

namespace ostrel {

// A row of the agent list: a section's heading or an agent.
struct SelectorRow {
  Q_GADGET
  Q_PROPERTY(QString key MEMBER key)
  Q_PROPERTY(bool heading MEMBER heading)
  Q_PROPERTY(QString title MEMBER title)
  Q_PROPERTY(QString subtitle MEMBER subtitle)
  Q_PROPERTY(bool asks MEMBER asks)
  Q_PROPERTY(int light MEMBER light)
  Q_PROPERTY(QString status MEMBER status)
  Q_PROPERTY(QString age MEMBER age)

 public:
  QString key;           // the agent's id, of a heading a word and its project
  bool heading = false;  // a section's; it has a title and nothing else
  QString title;
  QString subtitle;   // what it asks, or what it is and where it runs
  bool asks = false;  // it is the former
  int light = 0;      // the number of its `AgentLight`
  QString status;     // the light in words
  QString age;        // how long it has been so: "4 min"; empty where nobody knows
  bool operator==(const SelectorRow&) const = default;
};

class SelectorBridge final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the program")
  Q_PROPERTY(ostrel::RowList* rows READ rows CONSTANT)
  Q_PROPERTY(QString summary READ summary NOTIFY changed)
  Q_PROPERTY(int agents READ agents NOTIFY changed)
  Q_PROPERTY(QList<int> counts READ counts NOTIFY changed)
  Q_PROPERTY(QStringList countWords READ countWords NOTIFY changed)
  Q_PROPERTY(int edition READ edition NOTIFY rowsChanged)
  Q_PROPERTY(QString emptyResult READ emptyResult NOTIFY changed)
  Q_PROPERTY(QStringList problems READ problems NOTIFY problemsChanged)
  Q_PROPERTY(QString selection READ selection NOTIFY selectionChanged)
  Q_PROPERTY(int selectionRow READ selectionRow NOTIFY selectionChanged)
  Q_PROPERTY(QString openAgent READ openAgent NOTIFY openAgentChanged)
  Q_PROPERTY(QString filterText READ filterText WRITE setFilterText NOTIFY filterChanged)
  Q_PROPERTY(int chosenLight READ chosenLight NOTIFY filterChanged)

 public:
  enum Key { Up, Down, Open, Close };
  Q_ENUM(Key)

  // What the list needs beside the model; both outlive it.
  struct Sources {
    MainLoop& loop;
    RequestSource& requests;
  };
  // How often the ages are written anew, while the list is seen.
  static constexpr Duration kAgesAnew = std::chrono::seconds(30);

  SelectorBridge(BridgeParts parts, Sources sources);

  ListModel<SelectorRow>* rows() { return &rows_; }
  QString summary() const { return summary_; }          // the list in a line
  int agents() const { return agents_; }                // how many there are, filtered or not
  QList<int> counts() const { return counts_; }         // of each light
  QStringList countWords() const;                       // the same in words
  int edition() const { return edition_; }              // another number after each change of the rows
  QString emptyResult() const { return emptyResult_; }  // why the filter leaves nobody
  QStringList problems() const;                         // why the list may not be whole
  QString selection() const;                            // the key of the row that the keyboard has chosen
  int selectionRow() const;                             // its place, or -1
  QString openAgent() const;                            // the key of the one whose conversation is shown
  QString filterText() const;
  void setFilterText(const QString& text);
  int chosenLight() const;  // the number of the only one that is shown, or -1
  void refresh();

  Q_INVOKABLE void hover(const QString& key, bool inside);
  Q_INVOKABLE void hoverList(bool inside) { parts_.edge.hoverList(inside); }
  Q_INVOKABLE void open(const QString& key);
  Q_INVOKABLE void openConnections() { parts_.edge.openPage({PanelTab::connections, false}); }
  Q_INVOKABLE bool press(ostrel::SelectorBridge::Key key);
  // Shows only that light, or all again where it is the chosen one.
  Q_INVOKABLE void chooseLight(int light);
  // The rows below that one in which somebody needs the person: how many, and the first, or -1.
  Q_INVOKABLE int needsYouBelow(int row) const;
  Q_INVOKABLE int nextNeedsYou(int row) const;

 Q_SIGNALS:
  void changed();
  void rowsChanged();
  void problemsChanged();
  void selectionChanged();
  void openAgentChanged();
  void filterChanged();

 private:
  void follow();
  void keepAges();
  std::vector<SelectorRow> made() const;
  SelectorRow row(const LitAgent& lit, bool withProject, const std::map<std::string, std::string>& asked,
                  WallTime now) const;
  bool waits(std::size_t row) const;

  BridgeParts parts_;
  Sources sources_;
  ListModel<SelectorRow> rows_;
  QString summary_;
  QString emptyResult_;
  QList<int> counts_;
  int agents_ = 0;
  int edition_ = 0;
  Timer ages_;
  std::vector<Subscription> subscriptions_;
};

}  // namespace ostrel
