// The panel and its list of agents as a person meets them, without a display: their real views over the real
// state of the edge.
#include <QKeyEvent>
#include <arpa/inet.h>
#include <sys/socket.h>

#include "EdgeViewsFixture.h"
#include "Runtime/UniqueFd.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

// Somebody on this machine who waits to be fetched from.
class Listener {
 public:
  Listener() : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::bind(fd_.get(), reinterpret_cast<const sockaddr*>(&address_), sizeof address_), 0);
    EXPECT_EQ(::listen(fd_.get(), 4), 0);
    socklen_t length = sizeof address_;
    EXPECT_EQ(::getsockname(fd_.get(), reinterpret_cast<sockaddr*>(&address_), &length), 0);
  }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(ntohs(address_.sin_port)) + "/x"; }
  bool asked() const { return static_cast<bool>(UniqueFd(::accept(fd_.get(), nullptr, nullptr))); }

 private:
  UniqueFd fd_;
  sockaddr_in address_{};
};

TEST_F(EdgeViewsTest, WhatAgentsCallThemselvesIsTextAndFetchesNothing) {
  Listener listener;
  agents_.agents[0].title = "<img src=\"" + listener.url() + "\">";
  agents_.agents[1].provider = "<img src='" + listener.url() + "'>";
  agents_.agents[2].context = "/work/<img src='" + listener.url() + "'>";
  PanelBridge pages(shown_, agentPage());
  QQuickView panel(&engine_, nullptr);
  open(panel, "OstrelView", pages, {0, 0, 416, 400});
  ASSERT_EQ(rows(panel, "agentRow").size(), 3u);
  const auto end = std::chrono::steady_clock::now() + 400ms;  // a picture is asked for within a few
  while (std::chrono::steady_clock::now() < end) {
    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    ASSERT_FALSE(listener.asked());
  }
}

TEST_F(EdgeViewsTest, APreviewFollowsThePointerFromRowToRowBothWays) {
  edge_.openPage(RailPage::agents);
  PanelBridge pages(shown_, agentPage());
  QQuickView panel(&engine_, nullptr);
  open(panel, "OstrelView", pages, {0, 0, 416, 400});
  const auto places = rows(panel, "agentRow");
  ASSERT_EQ(places.size(), 3u);
  for (const std::size_t row : {0u, 1u, 2u, 1u, 0u}) {
    move(panel, places[row]);
    loop_.runFor(EdgeState::kAgentDelay);
  }
  EXPECT_EQ(opened_, "abcba");
  // Crossed too quickly for the first two.
  for (const std::size_t row : {1u, 0u, 1u, 2u}) {
    move(panel, places[row]);
    loop_.runFor(10ms);
  }
  loop_.runFor(EdgeState::kAgentDelay);
  EXPECT_EQ(opened_, "abcbac");
  move(panel, places[1]);
  move(panel, {200, 20});  // out of the list
  loop_.runFor(1s);
  EXPECT_EQ(opened_, "abcbac") << "it left in time";
}

TEST_F(EdgeViewsTest, KeysGoThroughTheListAndOpenWhatTheyChose) {
  edge_.openPage(RailPage::agents);
  PanelBridge pages(shown_, agentPage());
  QQuickView panel(&engine_, nullptr);
  open(panel, "OstrelView", pages, {0, 0, 416, 400});
  for (const int key :
       {Qt::Key_Down, Qt::Key_Down, Qt::Key_Return, Qt::Key_Up, Qt::Key_Return, Qt::Key_Escape}) {
    QKeyEvent event(QEvent::KeyPress, key, Qt::NoModifier);
    QCoreApplication::sendEvent(&panel, &event);
    settle();
  }
  EXPECT_EQ(opened_, "b!a!");
  EXPECT_FALSE(*shown_.isPanelVisible);
}

TEST_F(EdgeViewsTest, AnEmptyListSaysWhatFailed) {
  agents_.agents.clear();
  edge_.openPage(RailPage::agents);
  PanelBridge pages(shown_, agentPage());
  QQuickView panel(&engine_, nullptr);
  open(panel, "OstrelView", pages, {0, 0, 416, 256});
  const auto summary = [&] { return texts(panel, "pageSummary").join(QLatin1Char('|')); };
  EXPECT_EQ(summary(), QStringLiteral("0 agents · all quiet"));
  EXPECT_TRUE(rows(panel, "listProblems").empty());
  const int height = desktop_.frames[EdgeWindow::panel].height;
  model_.setProblems({"Local discovery unavailable: <b>ps</b> ended with status 1", "Codex: no"});
  edge_.settingsChanged();
  settle();
  EXPECT_EQ(summary(), QStringLiteral("No agents found"));
  ASSERT_EQ(rows(panel, "listProblems").size(), 1u);
  EXPECT_EQ(texts(panel, "listProblem "),
            QStringList({QStringLiteral("Local discovery unavailable: <b>ps</b> ended with status 1"),
                         QStringLiteral("Codex: no")}));
  EXPECT_GT(desktop_.frames[EdgeWindow::panel].height, height) << "there is room for them";
}

TEST_F(EdgeViewsTest, ARowSaysWhatIsAskedAndForHowLong) {
  agents_.agents[0].since = loop_.wallNow() - 4min;
  agents_.agents[1].since = loop_.wallNow() - 50s;
  agents_.lights["b"] = AgentLight::needsYou;
  SelectorBridge bridge(parts(), {loop_, asked_});
  const auto row = [&](const char* pane) {
    const auto& rows = bridge.rows()->rows();
    const auto id = agentOf(pane).id();
    return *std::ranges::find_if(rows, [&](const SelectorRow& one) { return one.key.toStdString() == id; });
  };
  EXPECT_EQ(bridge.rows()->rows().front().title, QStringLiteral("Needs you"));
  EXPECT_EQ(row("b").subtitle, QStringLiteral("one · Agent · Herdr"));
  EXPECT_EQ(row("a").subtitle, QStringLiteral("Agent · Herdr"));
  ClaudePermissionRequest request;
  request.title = "Run the migration";
  asked_.open = {{"1", "", agentOf("b").id(), request}, {"2", "", {}, request}};
  asked_.changes.notify();
  EXPECT_EQ(row("b").subtitle, QStringLiteral("one · Run the migration"));
  EXPECT_TRUE(row("b").asks);
  request.questions = {{.question = "Which database?", .header = {}, .options = {}}};
  asked_.open[0].asked = request;
  asked_.changes.notify();
  EXPECT_EQ(row("b").subtitle, QStringLiteral("one · Which database?"));

  EXPECT_EQ(row("a").age + row("b").age + row("c").age, QStringLiteral("4 minnow"));
  loop_.runFor(10min);
  EXPECT_EQ(row("a").age, QStringLiteral("4 min")) << "nobody sees it: nothing runs";
  edge_.openPage(RailPage::agents);
  EXPECT_EQ(row("a").age, QStringLiteral("14 min")) << "when it is opened it is right";
  loop_.runFor(90s);
  EXPECT_EQ(row("a").age, QStringLiteral("15 min"));
  edge_.hidePanel();
  loop_.runFor(10min);
  EXPECT_EQ(row("a").age, QStringLiteral("15 min"));
}

TEST_F(EdgeViewsTest, WhatIsTypedFiltersAndCountsChooseByLight) {
  agents_.agents[0].title = "Übersicht";
  agents_.lights["b"] = AgentLight::working;
  edge_.openPage(RailPage::agents);
  PanelBridge pages(shown_, agentPage());
  QQuickView panel(&engine_, nullptr);
  open(panel, "OstrelView", pages, {0, 0, 416, 500});
  panel.requestActivate();
  settle();
  const auto key = [&](int code, const QString& text) {
    for (const auto type : {QEvent::KeyPress, QEvent::KeyRelease}) {
      QKeyEvent event(type, code, Qt::NoModifier, text);
      QCoreApplication::sendEvent(&panel, &event);
    }
    settle();
    panel.grabWindow();  // a list makes its rows as it is drawn
  };
  const auto left = [list = panel.rootObject()->findChild<QQuickItem*>(QStringLiteral("agentList"))] {
    return list->property("count").toInt();
  };
  EXPECT_EQ(texts(panel, "countChip"), QStringList({QStringLiteral("1 working"), QStringLiteral("2 idle")}));
  key(Qt::Key_Udiaeresis, QStringLiteral("ü"));
  key(Qt::Key_B, QStringLiteral("B"));
  EXPECT_EQ(model_.filter()->text, "üB");
  EXPECT_EQ(left(), 1);
  key(Qt::Key_Return, QStringLiteral("\r"));
  EXPECT_EQ(opened_, "a!") << "what is left first is opened";
  QList<QQuickItem*> marks;
  childrenNamed(panel.rootObject(), QStringLiteral("openMark"), marks);
  EXPECT_EQ(marks.size(), 1) << "and marked";
  key(Qt::Key_X, QStringLiteral("x"));
  EXPECT_EQ(left(), 0);
  EXPECT_EQ(texts(panel, "emptyResult"), QStringList{QStringLiteral("No agent matches “üBx”.")});
  key(Qt::Key_Escape, QStringLiteral("\x1b"));
  EXPECT_TRUE(*shown_.isPanelVisible);
  EXPECT_EQ(left(), 3);
  key(Qt::Key_Down, {});
  EXPECT_EQ(model_.selectedAgent()->paneID, "a") << "nothing was left to be chosen";

  // A chip is pressed; letters typed while it has the keyboard go to the filter all the same.
  QList<QQuickItem*> chips;
  childrenNamed(panel.rootObject(), QStringLiteral("countChip"), chips);
  chips.front()->forceActiveFocus();
  key(Qt::Key_Space, QStringLiteral(" "));
  EXPECT_EQ(model_.filter()->light, AgentLight::working);
  EXPECT_EQ(left(), 1);
  key(Qt::Key_Z, QStringLiteral("z"));
  EXPECT_EQ(texts(panel, "emptyResult"),
            QStringList{QStringLiteral("No agent that is working matches “z”.")});
  key(Qt::Key_Backspace, QStringLiteral("\b"));
  EXPECT_EQ(left(), 1);
  key(Qt::Key_Escape, QStringLiteral("\x1b"));
  EXPECT_EQ(left(), 3);
  key(Qt::Key_Escape, QStringLiteral("\x1b"));
  EXPECT_FALSE(*shown_.isPanelVisible);
}

TEST_F(EdgeViewsTest, WhoWaitsBelowTheFoldIsSaid) {
  for (int i = 0; i < 20; ++i) {
    const std::string pane = "n" + std::to_string(i);
    agents_.agents.push_back(agentOf(pane));
    agents_.lights[pane] = AgentLight::needsYou;
  }
  edge_.openPage(RailPage::agents);
  PanelBridge pages(shown_, agentPage());
  QQuickView panel(&engine_, nullptr);
  open(panel, "OstrelView", pages, {0, 0, 416, 600});
  // Rows whose middle stands above the list's lower end, of those that wait.
  const auto unseen = [&] {
    panel.grabWindow();
    settle();
    return texts(panel, "needsYouBelow").join(QLatin1Char('|'));
  };
  auto* const list = panel.rootObject()->findChild<QQuickItem*>(QStringLiteral("agentList"));
  const int seen = static_cast<int>((list->height() - 6 - 32) / 54 + 0.5);
  EXPECT_EQ(unseen(), QStringLiteral("%1 more need you below").arg(20 - seen));
  EXPECT_FALSE(rows(panel, "fadeBelow").empty());
  EXPECT_TRUE(rows(panel, "fadeAbove").empty());
  list->setProperty("contentY", 32 + 19 * 54 + 20 - list->height());
  EXPECT_EQ(unseen(), QStringLiteral("1 more needs you below"));
  EXPECT_FALSE(rows(panel, "fadeAbove").empty());
  for (int i = 0; i < 20; ++i) agents_.lights["n" + std::to_string(i)] = AgentLight::idle;
  agents_.changes.notify();
  EXPECT_EQ(unseen(), QString());
  list->setProperty("contentY", -6.0);
  EXPECT_EQ(unseen(), QString()) << "those below the fold can wait";
}

// A row in the table is all that the panel must know of a page.
TEST_F(EdgeViewsTest, APageIsReachedByItsRowAlone) {
  const TemporaryFolder folder;
  const auto file = folder.write("MadeUpPage.qml", R"(
    import QtQuick
    import "qrc:/qt/qml/Ostrel"
    PanelPage {
      required property QtObject bridge
      objectName: "madeUpPage"
      summary: bridge.objectName
    })");
  std::vector<PanelPage> pages = agentPage();
  auto* const bridge = new QObject;
  bridge->setObjectName(QStringLiteral("What its bridge says"));
  pages.push_back({{PanelTab::notes},
                   QStringLiteral("Made up"),
                   QUrl::fromLocalFile(QString::fromStdString(file.string())),
                   std::unique_ptr<QObject>(bridge)});
  PanelBridge panel(shown_, std::move(pages));
  QQuickView view(&engine_, nullptr);
  open(view, "OstrelView", panel, {0, 0, 416, 400});
  EXPECT_TRUE(rows(view, "madeUpPage").empty()) << "made when it is opened";
  edge_.openPage({PanelTab::notes});
  settle();
  EXPECT_EQ(rows(view, "madeUpPage").size(), 1u);
  EXPECT_EQ(texts(view, "page"),
            QStringList({QStringLiteral("Made up"), QStringLiteral("What its bridge says")}));
  EXPECT_TRUE(rows(view, "agentRow").empty());
  for (const RailPage other : {RailPage::agents, RailPage{PanelTab::settings}}) {
    edge_.openPage(other);
    // A list makes its rows as it is drawn.
    const auto end = std::chrono::steady_clock::now() + 10s;
    while (rows(view, "agentRow").size() < 3 && std::chrono::steady_clock::now() < end)
      QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    EXPECT_EQ(rows(view, "agentRow").size(), 3u) << "also in the place of a page that there is not";
    EXPECT_TRUE(rows(view, "madeUpPage").empty());
  }
}

}  // namespace
}  // namespace ostrel
