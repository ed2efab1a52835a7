// The conversation window's bridge and its texts, without a display.
#include <QClipboard>
#include <QGuiApplication>
#include <QTextBlock>
#include <QTextDocument>

#include <gtest/gtest.h>

#include "ConversationBridge.h"
#include "MessageText.h"
#include "Offscreen.h"
#include "SampleRequests.h"
#include "Support/FakeAgents.h"
#include "Support/FakeConversation.h"
#include "Support/FakeDesktop.h"
#include "Support/MemoryPreferences.h"
#include "Support/TemporaryFolder.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

AgentTranscriptMessage said(std::string id, std::string role, std::string text) {
  return {.id = std::move(id), .role = std::move(role), .text = std::move(text), .timestamp = {}};
}

class ConversationTest : public testing::Test {
 protected:
  ConversationTest() {
    agents_.agents = {agent_};
    agents_.lights = {{"a", AgentLight::working}, {"b", AgentLight::idle}};
    open_ = agent_;
  }
  QStringList bodies() {
    QStringList all;
    for (const ConversationRow& row : bridge_.blocks()->rows()) all.append(row.body);
    return all;
  }
  void say(std::vector<AgentTranscriptMessage> messages) {
    shown_.transcript.set(std::move(messages));
    fake_.changed.notify();
    loop_.runFor(100ms);
  }
  std::string opened(const char* link) {
    opened_.clear();
    bridge_.openLink(QString::fromUtf8(link));
    loop_.waitUntil([&] { return !opened_.empty() || !bridge_.message().isEmpty(); });
    const std::string result = opened_.empty() ? bridge_.message().toStdString() : opened_;
    loop_.runFor(10s);
    return result;
  }

  QApplication& offscreen_ = offscreen();
  TemporaryFolder home_;
  HerdrAgent agent_ = agentOf("a", home_.path().string());
  VirtualLoop loop_;
  BackgroundPool pool_;
  MemoryPreferences preferences_;
  FakeAgents agents_;
  FakeDesktop desktop_;
  OstrelModel model_{agents_};
  InterfaceState edgeShown_;
  EdgeState edge_{{loop_, desktop_, desktop_, desktop_, preferences_},
                  model_,
                  edgeShown_,
                  {[](const auto&, bool) {}, [] {}}};
  FakeConversation fake_;
  SelectedConversation& shown_ = fake_.content;
  std::optional<HerdrAgent>& open_ = fake_.open_;
  std::string& opened_ = fake_.opened;
  SampleRequests asks_;
  ConversationBridge bridge_{loop_,
                             pool_,
                             {model_, edge_, desktop_, preferences_, [] {}},
                             {fake_, fake_, asks_, fake_, home_.path()}};
};

TEST_F(ConversationTest, WhatIsReadStaysWhenItsAgentEnds) {
  bridge_.show(agent_);
  say({said("1", "user", "one"), said("2", "assistant", "two\n\nthree")});
  EXPECT_EQ(bodies().join(u'|').toStdString(), "one|two|three");
  EXPECT_FALSE(bridge_.ended());
  bridge_.closed();
  say({said("1", "user", "unseen")});
  EXPECT_EQ(bodies().size(), 3) << "nobody looks";
  bridge_.show(agent_);
  EXPECT_EQ(bodies().join(u'|').toStdString(), "unseen");
  say({said("1", "user", "one"), said("2", "assistant", "two\n\nthree")});
  agents_.agents.clear();
  open_.reset();
  say({});
  EXPECT_TRUE(bridge_.ended());
  EXPECT_EQ(bodies().size(), 3);
  bridge_.copyMessage(QStringLiteral("2#1"));
  EXPECT_EQ(QGuiApplication::clipboard()->text().toStdString(), "two\n\nthree");

  open_ = agentOf("b");
  agents_.agents = {*open_};
  bridge_.show(*open_);
  EXPECT_EQ(bodies().size(), 0) << "another agent begins with what is known of it";
  say({said("1", "user", "three")});
  open_.reset();
  bridge_.show(agent_);
  EXPECT_EQ(bodies().size(), 0) << "also when it has gone already";
}

TEST_F(ConversationTest, ItsLightIsThatOfTheRecordThatIsOpen) {
  agents_.lights["thread"] = AgentLight::needsYou;
  open_ = agentOf("thread");
  bridge_.show(agent_);
  EXPECT_EQ(bridge_.light(), static_cast<int>(AgentLight::needsYou));
}

TEST_F(ConversationTest, ThePillSaysThatItCanBeAnsweredWhileACardIsThere) {
  bridge_.show(agent_);
  const QString before = bridge_.status();
  asks_.ask("bash");
  loop_.runFor(100ms);
  EXPECT_EQ(bridge_.status(), QStringLiteral("Needs your answer"));
  EXPECT_EQ(bridge_.light(), static_cast<int>(AgentLight::needsYou)) << "the agent's own light comes later";
  asks_.ask({});
  loop_.runFor(100ms);
  EXPECT_EQ(bridge_.status(), before);
  EXPECT_EQ(bridge_.light(), static_cast<int>(AgentLight::working));
}

TEST_F(ConversationTest, TheFirstWordsComeAtOnceAndOthersInTheirTurn) {
  bridge_.show(agent_);
  shown_.loadingHistory.set(true);
  loop_.runFor(1ms);
  shown_.transcript.set({said("1", "user", "one")});
  loop_.runFor(1ms);
  EXPECT_EQ(bodies().size(), 1);
  shown_.transcript.set({said("1", "user", "one"), said("2", "assistant", "two")});
  loop_.runFor(1ms);
  EXPECT_EQ(bodies().size(), 1);
  loop_.runFor(100ms);
  EXPECT_EQ(bodies().size(), 2);
}

TEST_F(ConversationTest, FindingGoesRoundAndFollowsWhatIsSaid) {
  bridge_.show(agent_);
  say({said("1", "user", "needle"), said("2", "assistant", "hay"), said("3", "user", "a Needle")});
  std::vector<int> wanted;
  QObject::connect(&bridge_, &ConversationBridge::wanted, [&](int row) { wanted.push_back(row); });
  bridge_.find(QStringLiteral("needle"));
  bridge_.findNext(true);
  bridge_.findNext(true);
  bridge_.findNext(false);
  EXPECT_EQ(wanted, (std::vector{2, 0, 2, 0}));
  say({said("2", "assistant", "hay")});
  EXPECT_EQ(bridge_.findCount(), 0);
  bridge_.findNext(true);
  EXPECT_EQ(bridge_.findPlace(), -1);
}

TEST_F(ConversationTest, LinksOpenTheWebAndFilesAndNothingElse) {
  bridge_.show(agent_);
  home_.write("notes.txt", "x");
  home_.write("run.desktop", "x");
  const std::string folder = "file://" + home_.path().string();
  EXPECT_EQ(opened("https://example.com/a b"), "https://example.com/a%20b");
  EXPECT_EQ(opened("path:notes.txt"), folder + "/notes.txt");
  EXPECT_EQ(opened("~/notes.txt"), folder + "/notes.txt");
  EXPECT_EQ(opened("path:run.desktop"), folder) << "which could start something";
  EXPECT_EQ(opened("gone.txt"), "There is no file gone.txt.");
  EXPECT_EQ(opened("javascript:alert(1)"), "There is no file javascript:alert(1).");
}

TEST_F(ConversationTest, NothingInAMessageIsFetchedOrRun) {
  QTextDocument document;
  MessageText::setMarkdown(
      document, QStringLiteral("See ![a map](http://example.com/map.png) and ![zero](/dev/zero)\n\n"
                               "<img src=\"http://example.com/x.png\"> **bold**"));
  EXPECT_EQ(document.toPlainText().toStdString(),
            "See a map and zero\n<img src=\"http://example.com/x.png\"> bold");
  for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
    for (auto each = block.begin(); !each.atEnd(); ++each)
      EXPECT_FALSE(each.fragment().charFormat().isImageFormat());
  }
}

}  // namespace
}  // namespace ostrel
