// What agents ask, whoever asks, over the real sources with Codex's connection in the test's hands.
#include <gtest/gtest.h>

#include "Client/AgentInventory.h"
#include "Client/OpenRequests.h"
#include "Codex/FakeRequestPort.h"
#include "Support/Failures.h"
#include "Support/MemoryPreferences.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

constexpr char kFirst[] = "0190c0de-0000-7000-8000-000000000001";
constexpr char kSecond[] = "0190c0de-0000-7000-8000-000000000002";

class OpenRequestsTest : public testing::Test {
 protected:
  struct Browser final : UrlOpener {
    void open(const std::string& url) override { opened = url; }
    std::string opened;
  };
  OpenRequestsTest() {
    for (const char* const id : {kFirst, kSecond}) {
      HerdrAgent& thread = threads_.emplace_back();
      thread.session = "codex-live";
      thread.provider = "codex";
      thread.paneID = id;
      thread.transcriptReference = id;
    }
    inventory_.changed(AgentInventory::Source::codex, threads_);
    codex_.start(port_);
    codex_.receive(codexevent::Reset{"run", std::nullopt});
    for (const char* const id : {kFirst, kSecond}) codex_.receive(codexevent::Connected{"run", id});
  }
  void ask(const char* thread, const std::string& method, const std::string& payload,
           const std::string& id = "1") {
    codex_.receive(codexevent::Received{{"run", id, thread, method, payload}});
  }
  std::vector<std::string> choices() {
    std::vector<std::string> ids;
    for (const RequestChoice& choice : requests_.list().at(0).choices()) ids.push_back(choice.id);
    return ids;
  }
  VirtualLoop loop_;
  BackgroundPool pool_;
  MemoryPreferences preferences_;
  ClaudePermissionServer claude_{loop_, ""};
  FakeRequestPort port_;
  CodexRequestController codex_{loop_};
  std::vector<HerdrAgent> threads_;
  AgentInventory inventory_{preferences_};
  Browser browser_;
  OpenRequests requests_{loop_,
                         pool_,
                         {.claude = claude_,
                          .codex = codex_,
                          .inventory = inventory_,
                          .preferences = preferences_,
                          .asksCodex = true,
                          .urls = &browser_}};
};

TEST_F(OpenRequestsTest, EachIsOfTheAgentInItsConversationAndOfNobodyElse) {
  const char* const command = "item/commandExecution/requestApproval";
  ask(kSecond, command, R"({"command":"ls"})", "1");
  ask(kFirst, command, R"({"command":"rm"})", "2");
  ask("0190c0de-0000-7000-8000-000000000003", command, R"({"command":"x"})", "3");
  const auto all = requests_.list();
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[0].agent, threads_[1].id());
  EXPECT_EQ(all[1].agent, threads_[0].id());
  EXPECT_EQ(all[2].agent, std::nullopt);
  ASSERT_EQ(requests_.of(threads_[0]).size(), 1u);
  EXPECT_EQ(requests_.of(threads_[0])[0].id, all[1].id);
}

TEST_F(OpenRequestsTest, WhatAsksSomethingElseUnderTheSameNumberIsAnotherRequest) {
  const char* const command = "item/commandExecution/requestApproval";
  ask(kFirst, command, R"({"command":"ls"})");
  const OpenRequest read = requests_.list().at(0);
  ask(kFirst, command, R"({"command":"rm -rf ."})");
  ASSERT_EQ(requests_.list().size(), 1u);
  const RequestAnswer yes{.choice = read.choices().at(0).id};
  EXPECT_EQ(failureOf([&] { requests_.answer(read.id, yes); }), "This request has ended.");
  EXPECT_TRUE(port_.replies.empty());
  requests_.answer(requests_.list().at(0).id, yes);
  ASSERT_EQ(port_.replies.size(), 1u);
  EXPECT_EQ(port_.replies[0].second, R"({"decision":"accept"})");
}

TEST_F(OpenRequestsTest, OnlyWhatIsOverGoesAndNothingOfALostConnectionComes) {
  const char* const command = "item/commandExecution/requestApproval";
  ask(kFirst, command, R"({"command":"ls"})", "1");
  ask(kSecond, command, R"({"command":"rm"})", "2");
  codex_.receive(codexevent::Disconnected{"run", kFirst});
  ASSERT_EQ(requests_.list().size(), 1u) << "the other conversation is joined still";
  EXPECT_EQ(requests_.list()[0].agent, threads_[1].id());
  codex_.receive(codexevent::Reset{"next", std::nullopt});
  ask(kFirst, command, R"({"command":"ls"})", "1");  // it was on its way
  EXPECT_TRUE(requests_.list().empty());
}

TEST_F(OpenRequestsTest, AStepIsDoneOnceItsLinkWasOpened) {
  ask(kFirst, "mcpServer/elicitation/request",
      R"({"serverName":"kit","message":"Sign in","mode":"url","url":"https://example.org/x"})");
  const std::string id = requests_.list().at(0).id;
  EXPECT_EQ(failureOf([&] { requests_.answer(id, {.choice = "done"}); }), "Open the link first.");
  requests_.openLink(id);
  ASSERT_TRUE(loop_.waitUntil([&] { return choices().front() == "done"; }));
  EXPECT_EQ(browser_.opened, "https://example.org/x");
  requests_.answer(id, {.choice = "done"});
  ASSERT_EQ(port_.replies.size(), 1u);
  EXPECT_EQ(Json::parse(port_.replies[0].second)["action"], "accept");
}

}  // namespace
}  // namespace ostrel
