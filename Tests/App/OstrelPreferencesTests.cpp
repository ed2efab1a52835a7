#include <gtest/gtest.h>

#include "App/Launch.h"
#include "App/OstrelPreferences.h"
#include "Runtime/Failure.h"
#include "Support/MemoryPreferences.h"

namespace ostrel {
namespace {

using Arguments = std::vector<std::string>;

TEST(LaunchTest, KindsOfRun) {
  struct Case {
    Arguments arguments;
    bool fixture, test;
  };
  for (const Case& c : std::initializer_list<Case>{{{}, false, false},
                                                   {{"Ostrel", "file", "-x"}, false, false},
                                                   {{"Ostrel", "--"}, false, true},
                                                   {{"Ostrel", "a", "--daily-tab", "2"}, false, true},
                                                   {{"Ostrel", "--check"}, false, true},
                                                   {{"Ostrel", "x", "--check-"}, true, true},
                                                   {{"Ostrel", "--snapshots=all"}, true, true},
                                                   {{"Ostrel", "-check-x", "a--check-"}, false, false},
                                                   {{"--check-discovery-live"}, true, false},
                                                   {{"--permission-hook"}, false, false}}) {
    SCOPED_TRACE(c.arguments.empty() ? "(empty)" : c.arguments.back());
    EXPECT_EQ(launch::isFixture(c.arguments), c.fixture);
    EXPECT_EQ(launch::isTestRun(c.arguments), c.test);
  }
}

struct MemoryDomains final : PreferenceDomains {
  Preferences* open(std::string_view domain) override {
    return refusesAllBut && domain != refusesAllBut ? nullptr : &domains[std::string(domain)];
  }
  PreferenceMap persistentDomain(std::string_view domain) override {
    return domains[std::string(domain)].stored;
  }
  void removePersistentDomain(std::string_view domain) override { domains.erase(std::string(domain)); }
  void flush() override {}
  std::map<std::string, MemoryPreferences> domains;
  std::optional<std::string_view> refusesAllBut;
};

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
  domains_.refusesAllBut = OstrelPreferences::plainDomain;
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
