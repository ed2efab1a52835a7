#include <gtest/gtest.h>

#include "App/Launch.h"
#include "App/OstrelPreferences.h"
#include "Runtime/Failure.h"
#include "Support/MemoryPreferences.h"

namespace ostrel {
namespace {

using Arguments = std::vector<std::string>;

TEST(LaunchTest, KindsOfRun) {
  const std::tuple<Arguments, bool, bool> cases[] = {{{"Ostrel", "file", "-x"}, false, false},
                                                     {{"Ostrel", "a", "--"}, false, true},
                                                     {{"Ostrel", "--check"}, false, true},
                                                     {{"Ostrel", "x", "--check-"}, true, true},
                                                     {{"Ostrel", "--snapshots=all"}, true, true},
                                                     {{"Ostrel", "-check-x", "a--check-"}, false, false},
                                                     {{"--check-x"}, true, false},
                                                     {{"--permission-hook"}, false, false}};
  for (const auto& [arguments, fixture, test] : cases) {
    EXPECT_EQ(launch::isFixture(arguments), fixture) << arguments.back();
    EXPECT_EQ(launch::isTestRun(arguments), test) << arguments.back();
  }
}

class OstrelPreferencesTest : public testing::Test {
 protected:
  OstrelPreferences run(const Arguments& arguments = {"Ostrel"}) {
    return {domains_, arguments, std::nullopt, 4711};
  }
  PreferenceMap& stored(const std::string& domain = "one.ostrel.app") {
    return domains_.domains[domain].stored;
  }
  MemoryDomains domains_;
};

TEST_F(OstrelPreferencesTest, PlatformWithoutTheSharedDomainFallsBackToThePlainOne) {
  domains_.only = OstrelPreferences::plainDomain;
  EXPECT_EQ(&run().shared(), domains_.open("Ostrel"));
  EXPECT_THROW(run({"Ostrel", "--check-x"}), Failure) << "a fixture must never touch the user's store";
}

TEST_F(OstrelPreferencesTest, FoldsOldDomainsOnceAndKeepsThem) {
  const PreferenceMap prototype = {{"settings.showInDock", false},
                                   {"herdrExecutable", "/proto/herdr"},
                                   {"agentTitle.a", "proto"},
                                   {"any thing", {1, 2}}};
  const PreferenceMap plain = {{"herdrSessionOverride", "old"},   {"ostrel.messageDrafts", "old"},
                               {"agentTitle.a", "old"},           {"agentTitle.b", "old"},
                               {"transcriptLink.c", "old"},       {"settings.notifyDone", true},
                               {"herdrExecutable", "/old/herdr"}, {"mascot.form", 3}};
  stored("app.velmora.ostrel.prototype") = prototype;
  stored("Ostrel") = plain;
  stored() = {{"herdrExecutable", "/mine"}, {"ostrel.messageDrafts", "mine"}};
  run().migrate();
  EXPECT_EQ(stored(), (PreferenceMap{{"herdrExecutable", "/mine"},
                                     {"ostrel.messageDrafts", "mine"},
                                     {"settings.showInDock", false},
                                     {"agentTitle.a", "proto"},
                                     {"any thing", {1, 2}},
                                     {"herdrSessionOverride", "old"},
                                     {"agentTitle.b", "old"},
                                     {"transcriptLink.c", "old"},
                                     {"ostrel.movedFromPreviousDomain", true},
                                     {"ostrel.sharedPreferencesMigrated", true}}));
  EXPECT_EQ(stored("app.velmora.ostrel.prototype"), prototype);
  EXPECT_EQ(stored("Ostrel"), plain);

  // A key that is deleted later must not come back. The two steps don't depend on each other.
  stored() = {{"ostrel.movedFromPreviousDomain", true}};
  run().migrate();
  EXPECT_EQ(stored().size(), 8u);
  EXPECT_FALSE(stored().contains("any thing"));
  stored().erase("agentTitle.b");
  run().migrate();
  EXPECT_EQ(stored().size(), 7u);
}

TEST_F(OstrelPreferencesTest, FixtureRunsLeaveNothingAndReadNothing) {
  const std::string fixture = "one.ostrel.app.fixture.4711";
  const PreferenceMap mine = {{"herdrExecutable", "/mine"}};
  stored() = mine;
  stored("Ostrel") = {{"agentTitle.b", "old"}};
  stored(fixture) = {{"left by", "an earlier run"}};
  {
    auto preferences = run({"Ostrel", "--check-discovery-live"});
    EXPECT_TRUE(preferences.isFixture());
    preferences.migrate();
    EXPECT_EQ(stored(fixture), PreferenceMap());
    preferences.shared().set("onboarding.done", true);
    EXPECT_TRUE(stored(fixture).contains("onboarding.done"));
  }
  EXPECT_FALSE(domains_.domains.contains(fixture));
  EXPECT_EQ(stored(), mine);
}

}  // namespace
}  // namespace ostrel
