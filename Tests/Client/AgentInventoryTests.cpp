#include <random>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Client/AgentInventory.h"
#include "Client/AgentSelection.h"
#include "Client/ConversationLinks.h"
#include "Support/MemoryPreferences.h"
#include "Support/Seed.h"

namespace ostrel {
namespace {

using Source = AgentInventory::Source;
using Records = std::vector<HerdrAgent>;

constexpr char kFirst[] = "0f8fad5b-d9cb-469f-a165-70867728950e";
constexpr char kSecond[] = "7c9e6679-7425-40de-944b-e07fc1f90ae7";

std::string path(const std::string& id) { return "/h/" + id + ".jsonl"; }

HerdrAgent record(const std::string& session, const std::string& pane,
                  const std::optional<std::string>& reference = {}, const char* provider = "claude") {
  HerdrAgent agent;
  agent.session = session;
  agent.paneID = pane;
  agent.provider = provider;
  agent.transcriptReference = reference;
  if (session == "external") agent.externalProcess.emplace();
  return agent;
}

HerdrAgent owned(HerdrAgent agent) {
  agent.herdrOwned = true;
  return agent;
}

HerdrAgent codex(const std::string& session, const std::string& pane,
                 const std::optional<std::string>& reference = {}) {
  return record(session, pane, reference, "codex");
}

HerdrAgent thread(const std::string& id) {
  HerdrAgent agent = codex("codex-live", id, id);
  agent.acceptsDirectInput = true;
  return agent;
}

std::string panes(const AgentList& list) {
  std::string text;
  for (const HerdrAgent& agent : list) text += agent.paneID + " ";
  return text;
}

class AgentInventoryTest : public testing::Test {
 protected:
  const Inventory& merged(Records herdr, Records external = {}, Records codexThreads = {},
                          Records remote = {}) {
    lists_ = {std::move(herdr), std::move(external), std::move(codexThreads), std::move(remote)};
    for (const Source source : {Source::herdr, Source::external, Source::codex, Source::remote})
      inventory_.changed(source, lists_[static_cast<std::size_t>(source)]);
    return inventory_.merged();
  }

  MemoryPreferences preferences_;
  AgentInventory inventory_{preferences_};
  std::array<Records, 4> lists_;
};

TEST_F(AgentInventoryTest, AProcessThatNamesAKnownPaneIsThatPane) {
  HerdrAgent process = record("external", "7");
  process.externalProcess->herdrPane = "w1:p1";
  EXPECT_EQ(panes(merged({record("one", "w1:p1")}, {process}).all), "w1:p1 ");
  // Whatever was started from a pane inherits its environment: a terminal multiplexer and all that is in it.
  EXPECT_EQ(panes(merged({record("one", "w1:p2")}, {process}).all), "w1:p2 7 ");
  EXPECT_EQ(panes(merged({codex("one", "w1:p1")}, {process}).all), "w1:p1 7 ");
  EXPECT_EQ(panes(merged({}, {process}).all), "7 ");
}

TEST_F(AgentInventoryTest, AFormMakesWorkWaitForThePerson) {
  const auto works = [](HerdrAgent agent, const char* state) {
    agent.state = stateNamed(state);
    return agent;
  };
  HerdrAgent remote = works(record("one", "r", path(kFirst)), "working");
  remote.machine.emplace();
  const auto states = [&] {
    std::string text;
    for (const HerdrAgent& agent : inventory_.merged().all)
      text += agent.paneID + std::string(stateName(agent.state)) + " ";
    return text;
  };
  merged({works(record("one", "p", path(kFirst)), "idle")},
         {works(record("external", "1", path(kFirst)), "working"),
          works(record("external", "2", path(kSecond)), "idle"),
          works(codex("external", "3", path(kSecond)), "working")},
         {}, {remote});
  const std::string before = states();
  inventory_.formsChanged({kFirst, kSecond});
  EXPECT_EQ(states(), "pblocked 2idle 3working rworking ");
  EXPECT_EQ(inventory_.reportedState(kFirst), AgentState::working)
      << "a form is none of its session's states";
  inventory_.formsChanged({});
  EXPECT_EQ(states(), before);
}

TEST_F(AgentInventoryTest, ShowsOneRecordOfAConversation) {
  const HerdrAgent pane = record("default", "p2", kFirst);
  // A pane beats a process; between panes the lower id, whatever the order given.
  EXPECT_EQ(
      panes(
          merged({record("default", "p9", path(kFirst)), pane}, {record("external", "1", path(kFirst))}).all),
      "p2 ");
  // A process outside Herdr beats one inside; one inside without a conversation is its pane's.
  EXPECT_EQ(panes(merged({}, {owned(record("external", "1", kSecond)), record("external", "2", path(kSecond)),
                              owned(record("external", "3")), record("external", "4")})
                      .all),
            "2 4 ");
  // The provider tells conversations apart, in any letter case. A manual link counts where nothing is
  // reported.
  HerdrAgent spelt = pane;
  spelt.provider = "Claude";
  const HerdrAgent linked = record("external", "6");
  preferences_.set(*manualLinkKey(linked), path(kFirst));
  EXPECT_EQ(
      panes(merged({spelt}, {codex("external", "5", kFirst), linked, record("external", "7", kFirst)}).all),
      "p2 5 ");
  preferences_.remove(*manualLinkKey(linked));
  inventory_.preferencesChanged();
  EXPECT_EQ(panes(inventory_.merged().all), "p2 5 6 ");
  // Repeated ids: the first stays. Sorted by id, the session's length in front; saved machines behind.
  EXPECT_EQ(panes(merged({pane, record("default", "p2"), record("a", "z")},
                         {record("external", "1"), record("external", "1")}, {},
                         {record("b", "far"), record("a", "away", kFirst)})
                      .all),
            "z p2 1 far away ");
}

TEST_F(AgentInventoryTest, ARowIsAsUrgentAsTheMostUrgentOfItsConversation) {
  const auto in = [](HerdrAgent agent, const char* state, std::optional<int> since = {}) {
    agent.state = stateNamed(state);
    if (since) agent.since = WallTime(std::chrono::seconds(*since));
    return agent;
  };
  const HerdrAgent one = record("external", "1", kFirst);
  const HerdrAgent two = record("external", "2", kFirst);
  const auto shown = [&](const Records& herdr, const Records& external) {
    const Inventory& list = merged(herdr, external);
    EXPECT_EQ(list.all.size(), 1U);
    const auto& since = list.all[0].since;
    return fmt::format("{} {} {}", list.all[0].paneID, stateName(list.all[0].state),
                       since ? since->time_since_epoch() / std::chrono::seconds(1) : -1);
  };
  EXPECT_EQ(shown({}, {in(one, "idle", 5), in(two, "blocked", 9)}), "1 blocked 9");
  const AgentList::Entry raised = inventory_.merged().all.entries()[0];
  EXPECT_EQ(shown({}, {in(one, "idle", 5), in(two, "blocked", 9)}), "1 blocked 9");
  EXPECT_EQ(inventory_.merged().all.entries()[0], raised) << "a record that stays is shared";
  EXPECT_EQ(shown({}, {in(one, "working", 5), in(two, "idle", 9)}), "1 working 5");
  EXPECT_EQ(shown({}, {in(one, "idle", 5), in(two, "idle", 9)}), "1 idle 9") << "fell quiet last";
  EXPECT_EQ(shown({}, {in(one, "idle", 5), in(two, "unknown", 9)}), "1 idle 5");
  // A pane and the process in it; what has no time of its own takes none from one that is as urgent.
  const HerdrAgent pane = record("default", "p", path(kFirst));
  EXPECT_EQ(shown({in(pane, "idle")}, {owned(in(one, "idle", 5)), in(two, "unknown")}), "p idle -1");
  EXPECT_EQ(shown({in(pane, "done")}, {owned(in(one, "blocked", 5))}), "p blocked 5");
}

TEST_F(AgentInventoryTest, AThreadStandsForItsPaneAndIsPrimaryWhereSomethingLinksIt) {
  HerdrAgent pane = codex("default", "p1", path(kFirst));
  pane.title = "from the terminal";
  const Inventory& both = merged({pane}, {}, {thread(kFirst), thread(kSecond)});
  EXPECT_EQ(panes(both.primary), std::string(kFirst) + " ");
  EXPECT_EQ(both.primary[0].title, "from the terminal");
  EXPECT_EQ(panes(both.loadedCodex), std::string(kSecond) + " ");
  preferences_.set("agentTitle." + pane.id(), "my own");
  inventory_.preferencesChanged();
  EXPECT_EQ(inventory_.merged().primary[0].title, "my own");
  // A process links too, and is then represented. An exact "codex" is asked for.
  EXPECT_EQ(panes(merged({}, {codex("external", "1", kSecond)}, {thread(kSecond)}).primary),
            std::string(kSecond) + " ");
  pane.provider = "Codex";
  EXPECT_EQ(panes(merged({pane}, {}, {thread(kFirst)}).primary), "") << "not matched, but not shown twice";
  EXPECT_EQ(inventory_.merged().all.size(), 1U);
}

// Every change of one source, however it is taken over, gives what a fresh inventory gives.
TEST_F(AgentInventoryTest, ChangesGiveWhatAFreshMergeGives) {
  std::mt19937 random(randomSeed());
  const auto any = [&](unsigned below) { return random() % below; };
  const auto conversation = [&]() -> std::optional<std::string> {
    if (any(3) == 0) return std::nullopt;
    return fmt::format("00000000-0000-0000-0000-{:012}", any(12));
  };
  const char* const sessions[] = {"default", "external", "codex-live", "far"};
  std::array<Records, 4> lists;
  for (int round = 0; round < 2000; ++round) {
    const std::size_t source = any(4);
    Records& list = lists[source];
    HerdrAgent agent =
        record(sessions[source], fmt::format("{}", any(20)), conversation(), any(2) ? "claude" : "codex");
    if (any(4) == 0) agent = owned(agent);
    agent.state = std::array{AgentState::blocked, AgentState::idle, AgentState::unknown}[any(3)];
    if (source == 2) agent = thread(conversation().value_or(kFirst));
    if (source == 3) agent.machine = HerdrMachine{.id = "m", .label = "m", .target = "t", .session = "s"};
    const auto at = list.begin() + static_cast<std::ptrdiff_t>(any(static_cast<unsigned>(list.size()) + 1));
    const auto change = any(3);
    if (change == 0) {
      list.insert(at, agent);
    } else if (at != list.end() && change == 1) {
      list.erase(at);
    } else if (at != list.end()) {
      *at = agent;
    }
    inventory_.changed(static_cast<Source>(source), list);
    if (any(3) == 0) continue;
    AgentInventory fresh(preferences_);
    for (std::size_t i = 0; i < 4; ++i) fresh.changed(static_cast<Source>(i), lists[i]);
    const Inventory& expected = fresh.merged();
    const Inventory& got = inventory_.merged();
    const auto same = [](const AgentList& one, const AgentList& other) {
      return std::equal(one.begin(), one.end(), other.begin(), other.end());
    };
    ASSERT_TRUE(same(got.all, expected.all)) << panes(got.all) << "| " << panes(expected.all);
    ASSERT_TRUE(same(got.primary, expected.primary) && same(got.loadedCodex, expected.loadedCodex));
    ASSERT_EQ(got.primary.size() + got.loadedCodex.size(), got.all.size());
  }
}

TEST(AgentSelectionTest, FollowsWhatIsShownForAnAgent) {
  MemoryPreferences preferences;
  AgentInventory inventory(preferences);
  Published<Records> herdr;
  Published<Records> threads;
  Records processes;
  struct Listener final : AgentSelection::Listener {
    std::string told;
    void selected(const HerdrAgent& agent, bool seen) override {
      told += "select " + agent.paneID + (seen ? " seen " : " ");
    }
    void cleared() override { told += "clear "; }
    void refreshed(const HerdrAgent& agent) override { told += "refresh " + agent.paneID + " "; }
  } listener;
  std::string& told = listener.told;
  AgentSelection selection({inventory, herdr, threads, preferences}, listener);
  const auto publish = [&](const Records& records = {}) {
    herdr.set(records);
    inventory.changed(Source::herdr, *herdr);
    inventory.changed(Source::external, processes);
    inventory.changed(Source::codex, *threads);
  };

  // Another terminal in the pane is another agent.
  HerdrAgent pane = record("default", "p1");
  pane.terminalID = "one";
  publish({pane});
  selection.select(pane, false);
  selection.herdrChanged();
  EXPECT_EQ(std::exchange(told, {}), "select p1 ");
  pane.terminalID = "two";
  publish({pane});
  selection.herdrChanged();
  selection.herdrChanged();
  EXPECT_EQ(std::exchange(told, {}), "select p1 seen ");
  publish();
  selection.herdrChanged();
  EXPECT_EQ(std::exchange(told, {}), "clear ");
  EXPECT_FALSE(*selection.selectedID());

  // A Codex process is shown by its thread, as soon as one can be told to be its own.
  processes = {codex("external", "7")};
  publish();
  selection.select(processes[0], true);
  selection.reconcile();
  threads.set({thread(kFirst), thread(kSecond)});
  publish();
  selection.reconcile();
  EXPECT_EQ(std::exchange(told, {}), "select 7 seen refresh 7 refresh 7 ");
  preferences.set(*manualLinkKey(processes[0]), path(kSecond));
  inventory.preferencesChanged();
  EXPECT_EQ(selection.opening(processes[0]).paneID, kSecond);
  selection.reconcile();
  EXPECT_EQ(std::exchange(told, {}),
            "clear ");  // the process is represented by its thread: its own record has gone

  selection.select(threads->at(1), true);
  selection.reconcile();
  EXPECT_EQ(std::exchange(told, {}), fmt::format("select {0} seen refresh {0} ", kSecond));

  // What went by itself is taken up again when it is back; what the person left is not.
  const std::vector<HerdrAgent> loaded = *threads;
  const auto load = [&](const std::vector<HerdrAgent>& list) {
    threads.set(list);
    publish();
    selection.reconcile();
  };
  load({});
  load(loaded);
  EXPECT_EQ(std::exchange(told, {}), fmt::format("clear select {} seen ", kSecond));
  load({});
  selection.clear();
  load(loaded);
  EXPECT_EQ(told, "clear ");
  EXPECT_NE(historyKey(processes[0], preferences), historyKey(codex("external", "7", kFirst), preferences));
}

}  // namespace
}  // namespace ostrel
