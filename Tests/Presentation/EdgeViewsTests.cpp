// The panel and its list of agents as a person meets them, without a display: their real views over the real
// state of the edge.
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
