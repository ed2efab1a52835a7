#include <gtest/gtest.h>

#include "App/AgentWords.h"
#include "Support/FakeAgents.h"
#include "Support/MemoryPreferences.h"

namespace ostrel {
namespace {

using enum AgentLight;

class OstrelModelTest : public testing::Test {
 protected:
  // "one: c d a, Home: b": the groups and the panes of their agents.
  std::string groups() const {
    std::string text;
    for (const AgentGroup& group : model_.agentGroups()) {
      text += (text.empty() ? "" : ", ") + group.project + ":";
      for (const LitAgent& lit : group.agents) text += " " + lit.agent().paneID;
    }
    return text;
  }
  FakeAgents agents_;
  std::vector<HerdrAgent>& list_ = agents_.agents;
  OstrelModel model_{agents_};
};

TEST_F(OstrelModelTest, WhoNeedsThePersonStandsOverAllProjects) {
  EXPECT_EQ(model_.notchSummary() + ", " + model_.selectorSummary(),
            "No agents running, 0 agents · all quiet");
  const HerdrAgent a = agentOf("a"), b = agentOf("b", "Home"), c = agentOf("c"),
                   d = agentOf("d", "/other/one/");
  HerdrAgent r = agentOf("r", "/home/one");
  r.machine = HerdrMachine{.id = "m", .label = "Box", .target = "box", .session = "s"};
  list_ = {a, b, c, r, d};
  agents_.lights = {{"a", working}, {"b", done}, {"c", needsYou}, {"d", needsYou}, {"r", idle}};
  EXPECT_EQ(groups(), "Needs you: c d, one: a, Home: b, Box · one: r");
  EXPECT_EQ(model_.railAgents()[2].agent(), a);
  EXPECT_EQ(model_.railAgents()[2].light, working);
  EXPECT_EQ(model_.find(d.id())->agent(), d);
  EXPECT_FALSE(model_.find("nobody"));
  EXPECT_EQ(model_.notchSummary(), "2 needs you · 1 working · 1 done · 1 idle");
  EXPECT_EQ(model_.selectorSummary(), "2 need you · 1 working · 1 done");
  EXPECT_EQ(model_.selectorRowCount(), 8) << "four headings of six tenths";

  // Frozen, neither a light nor a new agent moves a row; the rail still sorts.
  model_.freezeOrder(true);
  const HerdrAgent fresh = agentOf("f"), elsewhere = agentOf("e", "/work/two");
  agents_.lights = {{"a", needsYou}, {"b", working}, {"c", done}, {"d", idle}, {"f", done}, {"r", idle}};
  agents_.lights["e"] = needsYou;
  list_.insert(list_.begin(), {elsewhere, fresh});
  list_[4].since = WallTime::max();
  EXPECT_EQ(groups(), "Needs you: c d, one: a f, Home: b, Box · one: r, two: e");
  EXPECT_EQ(model_.railAgents()[1].agent(), a);
  for (const HerdrAgent& next : {elsewhere, r, b, fresh}) {
    model_.moveSelection(false);
    EXPECT_EQ(model_.selectedAgent()->id(), next.id());
  }
  std::erase_if(list_, [](const HerdrAgent& agent) { return agent.paneID == "c" || agent.paneID == "b"; });
  EXPECT_EQ(groups(), "Needs you: d, one: a f, Box · one: r, two: e");
  model_.freezeOrder(false);
  EXPECT_EQ(groups(), "Needs you: e a, one: f d, Box · one: r");
}

TEST_F(OstrelModelTest, ProjectsStandByTheirLatestChange) {
  const auto at = [](int second) { return WallTime() + std::chrono::seconds(second); };
  const auto add = [&](const char* pane, const char* context, AgentLight light,
                       std::optional<WallTime> since) {
    list_.push_back(agentOf(pane, context));
    list_.back().since = since;
    agents_.lights[pane] = light;
  };
  add("a", "/work/old", done, at(10));
  add("b", "/work/unknown", idle, std::nullopt);
  add("c", "/work/new", idle, at(5));
  add("d", "/work/new", done, at(30));
  add("e", "/work/first", working, at(1));
  add("f", "/work/second", working, at(2));
  EXPECT_EQ(groups(), "first: e, second: f, new: c d, old: a, unknown: b");
  // Those who work write in turns, and stay where they are.
  list_[5].since = at(40);
  EXPECT_EQ(groups(), "first: e, second: f, new: c d, old: a, unknown: b");
  // Who waits leaves its project where it was; the longest wait stands first.
  agents_.lights["d"] = agents_.lights["a"] = needsYou;
  EXPECT_EQ(groups(), "Needs you: a d, first: e, second: f, new: c, unknown: b");
  list_ = {list_[3]};
  EXPECT_EQ(groups(), "Needs you: d");
  EXPECT_EQ(model_.selectorRowCount(), 2) << "the section says its name even alone";
  agents_.lights["d"] = done;
  EXPECT_EQ(model_.selectorRowCount(), 1);
}

TEST_F(OstrelModelTest, TheListIsFilteredByWordsAndByLight) {
  MemoryPreferences preferences;
  OstrelModel model(agents_, &preferences);
  list_ = {agentOf("a", "/work/Straße"), agentOf("b", "/work/strasse"), agentOf("c", "/work/lab")};
  list_[0].title = "Fix the Ledger";
  list_[1].provider = "codex";
  list_[2].provider = "claude";
  preferences.set("agentTitle." + list_[2].id(), "Écrire des tests");
  agents_.lights = {{"a", working}, {"b", done}, {"c", idle}};
  const auto left = [&](const std::string& text, std::optional<AgentLight> light = {}) {
    model.setFilter({text, light});
    std::string panes;
    for (const AgentGroup& group : model.agentGroups()) {
      for (const LitAgent& lit : group.agents) panes += lit.agent().paneID;
    }
    return panes;
  };
  EXPECT_EQ(left("led"), "a");
  EXPECT_EQ(model.selectedAgent(), list_[0]) << "the first one can be opened at once";
  EXPECT_EQ(left("STRASSE"), "ab");
  EXPECT_EQ(model.selectedAgent(), list_[0]) << "a choice that is left stays";
  EXPECT_EQ(left("strasse CODE"), "b") << "all words, in any order";
  EXPECT_EQ(left("claude code éCRIRE"), "c");
  EXPECT_EQ(left("", done), "b");
  EXPECT_EQ(model.selectedAgent(), list_[2]);
  EXPECT_EQ(left("lab", done), "");
  EXPECT_FALSE(model.selectedAgent());
  EXPECT_EQ(model.emptyResult(), "No agent that is done matches “lab”.");
  EXPECT_EQ(left("", needsYou), "");
  EXPECT_EQ(model.emptyResult(), "No agent needs you now.");
  EXPECT_EQ(left("\xff\xfe"), "");
  EXPECT_EQ(model.emptyResult(), "No agent matches “\xff\xfe”.");
  EXPECT_EQ(model.agentCount(), 3);
  EXPECT_EQ(model.selectorRowCount(), 5) << "the window keeps its size";
  EXPECT_EQ(left("  "), "abc");
  EXPECT_EQ(model.emptyResult(), "");

  // Below the pointer nobody goes because of a light, and nobody comes.
  model.freezeOrder(true);
  EXPECT_EQ(left("", done), "b");
  agents_.lights = {{"a", done}, {"b", idle}, {"c", idle}};
  EXPECT_EQ(left("", done), "b");
  model.freezeOrder(false);
  EXPECT_EQ(left("", done), "a");
}

TEST(AgentWords, AnAgeIsToldInOneUnit) {
  using namespace std::chrono_literals;
  const WallTime now = WallTime() + 1000h;
  const std::pair<Duration, const char*> ages[] = {
      {-1h, "now"}, {59s, "now"},          {60s, "1 min"}, {59min + 59s, "59 min"},
      {1h, "1 h"},  {23h + 59min, "23 h"}, {24h, "1 d"},   {999h, "41 d"}};
  for (const auto& [age, words] : ages) EXPECT_EQ(ageWords(now - age, now), words);
}

TEST_F(OstrelModelTest, KeysGoRoundTheListFromAnyAgent) {
  const HerdrAgent a = agentOf("a"), b = agentOf("b"), c = agentOf("c", "/other/two");
  list_ = {a, b, c};
  agents_.lights = {{"a", working}, {"b", idle}, {"c", needsYou}};
  EXPECT_EQ(model_.neighbour(a.id(), true), b);
  EXPECT_EQ(model_.neighbour(c.id(), true), a);
  EXPECT_EQ(model_.neighbour(a.id(), false), c);
  EXPECT_EQ(model_.neighbour("gone", true), c) << "the first of the list";
  EXPECT_EQ(model_.nextWaiting(a.id()), c);
  EXPECT_EQ(model_.nextWaiting(c.id()), std::nullopt) << "no other";
  agents_.lights["a"] = needsYou;
  EXPECT_EQ(model_.nextWaiting(c.id()), a);
  list_ = {a};
  EXPECT_EQ(model_.neighbour(a.id(), true), std::nullopt);
}

}  // namespace
}  // namespace ostrel
