#include <gtest/gtest.h>

#include "Support/FakeAgents.h"

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

TEST_F(OstrelModelTest, ListsAreOrderedByProjectAndByLight) {
  EXPECT_EQ(model_.notchSummary() + ", " + model_.selectorSummary(),
            "No agents running, 0 agents · all quiet");
  const HerdrAgent a = agentOf("a"), b = agentOf("b", "Home"), c = agentOf("c"),
                   d = agentOf("d", "/other/one/");
  HerdrAgent r = agentOf("r", "/home/one");
  r.machine = HerdrMachine{.id = "m", .label = "Box", .target = "box", .session = "s"};
  list_ = {a, b, c, r, d};
  agents_.lights = {{"a", working}, {"b", done}, {"c", needsYou}, {"d", needsYou}, {"r", idle}};
  EXPECT_EQ(groups(), "one: c d a, Home: b, Box · one: r");
  EXPECT_EQ(model_.railAgents()[2].agent(), a);
  EXPECT_EQ(model_.railAgents()[2].light, working);
  EXPECT_EQ(model_.find(d.id())->agent(), d);
  EXPECT_FALSE(model_.find("nobody"));
  EXPECT_EQ(model_.notchSummary(), "2 needs you · 1 working · 1 done · 1 idle");
  EXPECT_EQ(model_.selectorSummary(), "2 need you · 1 working · 1 done");
  EXPECT_EQ(model_.selectorRowCount(), 7) << "three headings of six tenths";

  // Frozen, neither a light nor a new agent moves a row; the rail still sorts.
  model_.freezeOrder(true);
  const HerdrAgent fresh = agentOf("f");
  agents_.lights = {{"a", needsYou}, {"b", done}, {"c", done}, {"d", idle}, {"f", done}, {"r", idle}};
  list_.insert(list_.begin(), fresh);
  EXPECT_EQ(groups(), "one: c d a f, Home: b, Box · one: r");
  EXPECT_EQ(model_.railAgents().front().agent(), a);
  for (const HerdrAgent& next : {r, b, fresh}) {
    model_.moveSelection(false);
    EXPECT_EQ(model_.selectedAgent(), next);
  }
  model_.freezeOrder(false);
  EXPECT_TRUE(groups().starts_with("one: a f c d,")) << groups();
}

TEST_F(OstrelModelTest, KeysGoRoundTheListFromAnyAgent) {
  const HerdrAgent a = agentOf("a"), b = agentOf("b"), c = agentOf("c", "/other/two");
  list_ = {a, b, c};
  agents_.lights = {{"a", working}, {"b", idle}, {"c", needsYou}};
  EXPECT_EQ(model_.neighbour(a.id(), true), b);
  EXPECT_EQ(model_.neighbour(c.id(), true), a);
  EXPECT_EQ(model_.neighbour(a.id(), false), c);
  EXPECT_EQ(model_.neighbour("gone", true), a);
  EXPECT_EQ(model_.nextWaiting(a.id()), c);
  EXPECT_EQ(model_.nextWaiting(c.id()), std::nullopt) << "no other";
  agents_.lights["a"] = needsYou;
  EXPECT_EQ(model_.nextWaiting(c.id()), a);
  list_ = {a};
  EXPECT_EQ(model_.neighbour(a.id(), true), std::nullopt);
}

}  // namespace
}  // namespace ostrel
