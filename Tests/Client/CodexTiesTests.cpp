#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Client/AgentInventory.h"
#include "Client/CodexTies.h"
#include "Client/ConversationLinks.h"
#include "Support/MemoryPreferences.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

std::string idOf(int number) { return fmt::format("0190c0de-0000-7000-8000-{:012}", number); }
WallTime at(int second) { return WallTime(std::chrono::seconds(1'000'000 + second)); }

HerdrAgent terminal(int pid, const std::string& folder, int started, std::optional<bool> client = true) {
  HerdrAgent agent;
  agent.provider = "codex";
  agent.session = "external";
  agent.paneID = fmt::format("{}:x", pid);
  agent.context = folder;
  agent.externalProcess.emplace();
  agent.externalProcess->pid = pid;
  agent.externalProcess->tty = "pts/1";
  agent.codexTie = CodexTie{at(started), client, {}};
  return agent;
}
HerdrAgent thread(int number, const std::string& folder, int made, AgentState state = AgentState::idle) {
  HerdrAgent agent;
  agent.provider = "codex";
  agent.session = "codex-live";
  agent.paneID = idOf(number);
  agent.transcriptReference = idOf(number);
  agent.transcriptKind = "id";
  agent.context = folder;
  agent.state = state;
  agent.codexTie = CodexTie{at(made), std::nullopt, {}};
  return agent;
}
HerdrAgent resuming(HerdrAgent agent, int number) {
  agent.codexTie->named = {idOf(number)};
  return agent;
}

// "pid-thread" of each pair.
std::string ties(const std::vector<HerdrAgent>& terminals, const std::vector<HerdrAgent>& threads) {
  std::vector<const HerdrAgent*> left, right;
  for (const HerdrAgent& agent : terminals) left.push_back(&agent);
  for (const HerdrAgent& agent : threads) right.push_back(&agent);
  std::set<std::string> pairs;
  for (const auto& [one, other] : codexTies::tie(left, right))
    pairs.insert(fmt::format("{}-{} ", left[one]->externalProcess->pid, right[other]->paneID.back()));
  std::string all;
  for (const auto& pair : pairs) all += pair;
  return all;
}

TEST(CodexTies, OnlyWhatLeavesOneOfEachIsTied) {
  EXPECT_EQ(ties({terminal(7, "/a", 0)}, {thread(1, "/a", 1)}), "7-1 ");
  EXPECT_EQ(ties({terminal(7, "/a", 0)}, {thread(1, "/b", 60)}), "7-1 ") << "codex -C /b, slow to start";
  EXPECT_EQ(ties({terminal(7, "/a", 0)}, {thread(1, "/a", -9000)}), "7-1 ") << "resumed from its list";
  EXPECT_EQ(ties({terminal(7, "/a", 0)}, {thread(1, "/b", -9000)}), "") << "somebody else's";
  // Two at once, each in a folder of its own; and in one, begun at different times.
  EXPECT_EQ(ties({terminal(7, "/a", 0), terminal(8, "/b", 0)}, {thread(1, "/b", 1), thread(2, "/a", 1)}),
            "7-2 8-1 ");
  EXPECT_EQ(ties({terminal(7, "/a", 0), terminal(8, "/a", 60)}, {thread(1, "/a", 61), thread(2, "/a", 1)}),
            "7-2 8-1 ");
  EXPECT_EQ(ties({terminal(7, "/a", 0), terminal(8, "/a", 3)}, {thread(1, "/a", 4), thread(2, "/a", 1)}), "")
      << "either could be either's";
  EXPECT_EQ(ties({terminal(7, "/a", 0), terminal(8, "/a", 1)}, {thread(1, "/a", 2)}), "");
  EXPECT_EQ(ties({terminal(7, "/a", 0)}, {thread(1, "/a", 1), thread(2, "/a", 2)}), "");
  // What a terminal was told to resume is its own; that leaves one of each here.
  EXPECT_EQ(ties({resuming(terminal(7, "/a", 0), 1), terminal(8, "/a", 1)},
                 {thread(1, "/a", -50), thread(2, "/a", -90)}),
            "7-1 8-2 ");
  EXPECT_EQ(
      ties({resuming(terminal(7, "/a", 0), 1), resuming(terminal(8, "/a", 1), 1)}, {thread(1, "/b", -50)}),
      "");
  // Where the kernel does not tell who is connected, folder and start must agree.
  EXPECT_EQ(ties({terminal(7, "/a", 0, std::nullopt)}, {thread(1, "/a", 1)}), "7-1 ");
  EXPECT_EQ(ties({terminal(7, "/a", 0, std::nullopt)}, {thread(1, "/a", 60)}), "");

  EXPECT_TRUE(codexTies::mayShowThread(terminal(7, "/a", 0)));
  EXPECT_FALSE(codexTies::mayShowThread(terminal(7, "/a", 0, false))) << "it runs without a server";
  HerdrAgent own = terminal(7, "/a", 0);
  own.transcriptReference = "/h/x.jsonl";
  EXPECT_FALSE(codexTies::mayShowThread(own));
}

std::string rows(const AgentList& list) {
  std::string all;
  for (const HerdrAgent& agent : list) {
    all += agent.isCodexLive() ? agent.paneID.substr(35) : agent.paneID;
    if (agent.isCodexLive() && agent.externalProcess) all += fmt::format("@{}", agent.externalProcess->pid);
    all += " ";
  }
  return all;
}

class CodexRows : public testing::Test {
 protected:
  std::string shown(const std::vector<HerdrAgent>& external, const std::vector<HerdrAgent>& threads) {
    external_ = external;
    threads_ = threads;
    inventory_.changed(AgentInventory::Source::external, external_);
    inventory_.changed(AgentInventory::Source::codex, threads_);
    const Inventory& merged = inventory_.merged();
    return rows(merged.primary) + "| " + rows(merged.loadedCodex);
  }
  MemoryPreferences preferences_;
  AgentInventory inventory_{preferences_};
  std::vector<HerdrAgent> external_, threads_;
};

TEST_F(CodexRows, AThreadThatWaitsIsShownTiedOrByItself) {
  const HerdrAgent waiting = thread(1, "/a", 1, AgentState::blocked);
  EXPECT_EQ(shown({terminal(7, "/a", 0)}, {waiting}), "1@7 | ");
  EXPECT_EQ(inventory_.merged().primary[0].hostLabel(), std::nullopt) << "in a terminal, not in an app";
  const HerdrAgent twin = terminal(8, "/a", 1);
  EXPECT_EQ(shown({terminal(7, "/a", 0), twin}, {waiting, thread(2, "/a", 1)}), "1 7:x 8:x | 2 ");
  HerdrAgent finished = thread(1, "/a", 1);
  finished.since = at(90);
  EXPECT_EQ(shown({}, {finished, thread(2, "/a", 1)}), "1 | 2 ") << "it has worked, and may be done";
  EXPECT_EQ(shown({}, {thread(1, "/a", 1)}), "| 1 ");
  // A pane of Herdr stands for what runs in it.
  HerdrAgent inPane = terminal(7, "/a", 0);
  inPane.herdrOwned = true;
  EXPECT_EQ(shown({inPane}, {waiting}), "| 1 ");
}

TEST_F(CodexRows, ALinkedTerminalCanBeUnlinked) {
  const HerdrAgent process = terminal(7, "/a", 0, false);
  preferences_.set(*manualLinkKey(process), fmt::format("/h/rollout-x-{}.jsonl", idOf(1)));
  EXPECT_EQ(shown({process}, {thread(1, "/b", 1)}), "1@7 | ");
  const HerdrAgent row = inventory_.merged().primary[0];
  EXPECT_FALSE(manualLinkKey(row)) << "the thread itself can't be linked";
  const auto linked = inventory_.terminalOf(row);
  ASSERT_TRUE(linked);
  preferences_.remove(*manualLinkKey(*linked));
  inventory_.preferencesChanged();
  EXPECT_EQ(rows(inventory_.merged().primary), "7:x ");
  EXPECT_FALSE(inventory_.terminalOf(row));
}

}  // namespace
}  // namespace ostrel
