#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "App/BundleInfo.h"
#include "App/Launch.h"
#include "App/OstrelPreferences.h"
#include "App/OstrelSetting.h"
#include "Platform/Linux/PreferenceFile.h"
#include "Platform/Linux/PreferenceFiles.h"
#include "Runtime/Files.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

using Arguments = std::vector<std::string>;

TEST(LaunchTest, KindsOfRun) {
  struct Case {
    Arguments arguments;
    bool fixture, test;
  };
  const Case cases[] = {
      {{}, false, false},
      {{"Ostrel"}, false, false},
      {{"Ostrel", "file", "-x"}, false, false},
      {{"Ostrel", "--"}, false, true},
      {{"Ostrel", "a", "--daily-tab", "2"}, false, true},
      {{"Ostrel", "--permission-hook"}, false, true},
      {{"Ostrel", "--check"}, false, true},
      {{"Ostrel", "--check-"}, true, true},
      {{"Ostrel", "x", "--check-discovery-live"}, true, true},
      {{"Ostrel", "--snapshot"}, true, true},
      {{"Ostrel", "--snapshots=all"}, true, true},
      {{"Ostrel", "-check-x", "a--check-"}, false, false},
      {{"--check-discovery-live"}, true, false},
      {{"--permission-hook"}, false, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.arguments.empty() ? "(empty)" : c.arguments.back());
    EXPECT_EQ(launch::isFixture(c.arguments), c.fixture);
    EXPECT_EQ(launch::isTestRun(c.arguments), c.test);
  }
}

class OstrelPreferencesTest : public testing::Test {
 protected:
  // One run of the program, from its start to its end.
  struct Run {
    explicit Run(const OstrelPreferencesTest& test, const Arguments& arguments = {"Ostrel"},
                 std::optional<std::string> identifier = std::nullopt)
        : files(
              test.folder.path(), [](std::string_view line) { ADD_FAILURE() << line; },
              std::chrono::hours(1)),
          preferences(files, arguments, identifier, 4711) {}
    PreferenceFiles files;
    OstrelPreferences preferences;
    Preferences& shared() { return preferences.shared(); }
  };
  PreferenceMap stored(const std::string& domain) const {
    const auto bytes = files::read(folder.path() / (domain + ".json"));
    return bytes ? parsePreferences(*bytes).value() : PreferenceMap{{"(missing)", true}};
  }
  void store(const std::string& domain, const PreferenceMap& values) const {
    folder.write(domain + ".json", encodePreferences(values));
  }
  const TemporaryFolder folder;
};

TEST_F(OstrelPreferencesTest, PlatformWithoutTheSharedDomainFallsBackToThePlainOne) {
  struct Stingy final : PreferenceDomains {
    explicit Stingy(PreferenceFiles& files) : real(files) {}
    Preferences* open(std::string_view domain) override {
      return domain == OstrelPreferences::plainDomain ? real.open(domain) : nullptr;
    }
    PreferenceMap persistentDomain(std::string_view domain) override { return real.persistentDomain(domain); }
    void removePersistentDomain(std::string_view domain) override { real.removePersistentDomain(domain); }
    void flush() override { real.flush(); }
    PreferenceFiles& real;
  };
  PreferenceFiles files(folder.path(), [](std::string_view) {});
  Stingy stingy(files);
  OstrelPreferences preferences(stingy, {"Ostrel"}, std::nullopt, 4711);
  EXPECT_EQ(&preferences.shared(), files.open("Ostrel"));
  EXPECT_THROW(OstrelPreferences(stingy, {"Ostrel", "--check-x"}, std::nullopt, 4711), Failure)
      << "a fixture must never touch the user's store";
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
  store("app.velmora.ostrel.prototype", prototype);
  store("Ostrel", plain);
  store("one.ostrel.app", {{"herdrExecutable", "/mine"}, {"ostrel.messageDrafts", "mine"}});
  const PreferenceMap expected = {{"herdrExecutable", "/mine"},
                                  {"ostrel.messageDrafts", "mine"},
                                  {"settings.showInDock", false},
                                  {"agentTitle.a", "proto"},
                                  {"any thing", {1, 2}},
                                  {"herdrSessionOverride", "old"},
                                  {"agentTitle.b", "old"},
                                  {"transcriptLink.c", "old"},
                                  {"ostrel.movedFromPreviousDomain", true},
                                  {"ostrel.sharedPreferencesMigrated", true}};
  Run(*this).preferences.migrate();
  EXPECT_EQ(stored("one.ostrel.app"), expected);
  EXPECT_EQ(stored("app.velmora.ostrel.prototype"), prototype);
  EXPECT_EQ(stored("Ostrel"), plain);
  {
    Run run(*this);
    run.shared().remove("agentTitle.b");
    run.shared().remove("any thing");
  }
  {
    Run run(*this);
    run.preferences.migrate();
    EXPECT_FALSE(run.shared().object("agentTitle.b")) << "a key deleted later must not come back";
    EXPECT_FALSE(run.shared().object("any thing"));
  }
  // The steps don't depend on each other.
  store("one.ostrel.app", {{"ostrel.movedFromPreviousDomain", true}});
  Run(*this).preferences.migrate();
  EXPECT_EQ(stored("one.ostrel.app").size(), 8u);
  EXPECT_FALSE(stored("one.ostrel.app").contains("any thing"));
}

TEST_F(OstrelPreferencesTest, FixtureRunsLeaveNothingAndReadNothing) {
  const PreferenceMap mine = {{"herdrExecutable", "/mine"}};
  store("one.ostrel.app", mine);
  store("Ostrel", {{"agentTitle.b", "old"}});
  store("one.ostrel.app.fixture.4711", {{"left by", "an earlier run"}});
  {
    Run run(*this, {"Ostrel", "--check-discovery-live"}, "one.ostrel.app");
    EXPECT_TRUE(run.preferences.isFixture());
    run.preferences.migrate();
    run.shared().registerDefaults(OstrelSetting::defaults());
    for (const char* key : {"herdrExecutable", "agentTitle.b", "left by", "ostrel.movedFromPreviousDomain"})
      EXPECT_FALSE(run.shared().object(key)) << key;
    run.shared().set("onboarding.done", true);
    run.files.flush();
    EXPECT_TRUE(stored("one.ostrel.app.fixture.4711").contains("onboarding.done"));
    run.shared().set("late", true);
  }
  EXPECT_FALSE(std::filesystem::exists(folder.path() / "one.ostrel.app.fixture.4711.json"));
  EXPECT_EQ(stored("one.ostrel.app"), mine);
}

}  // namespace
}  // namespace ostrel
