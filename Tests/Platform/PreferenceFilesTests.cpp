#include <mutex>
#include <set>
#include <thread>

#include <gtest/gtest.h>

#include "Platform/Linux/PreferenceFile.h"
#include "Platform/Linux/PreferenceFiles.h"
#include "Runtime/Files.h"
#include "Support/SmallDisk.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

class PreferenceFilesTest : public testing::Test {
 protected:
  PreferenceFiles files(Duration delay = 1h) {
    const auto complain = [this](std::string_view line) {
      const std::scoped_lock lock(mutex);
      complaints.emplace_back(line);
    };
    return PreferenceFiles(folder, complain, delay);
  }
  std::string content(const std::string& name = "app.json") const {
    return files::read(folder / name).value_or("(missing)");
  }
  std::set<std::string> entries() const {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) names.insert(entry.path().filename());
    return names;
  }

  const TemporaryFolder temporary;
  const fs::path folder = temporary.path() / "config" / "ostrel";
  const fs::path file = folder / "app.json";
  std::mutex mutex;
  std::vector<std::string> complaints;
};

TEST_F(PreferenceFilesTest, KeepsValuesOfEveryTypeAndForgetsWhatIsRemoved) {
  {
    auto store = files();
    Preferences& app = *store.open("app");
    EXPECT_EQ(store.open("app"), &app);
    app.registerDefaults({{"on", true}, {"name", "default"}});
    app.set("name", "Ann");
    app.set("data", Json{{"list", {1, "two", nullptr}}});
    app.set("gone", 1);
    app.remove("gone");
    app.set("nothing", nullptr);
    app.remove("name");
    EXPECT_EQ(app.string("name"), "default");
    app.set("name", "Bob");
  }
  auto store = files();
  Preferences& app = *store.open("app");
  EXPECT_EQ(app.object("data"), (Json{{"list", {1, "two", nullptr}}}));
  for (const char* key : {"gone", "nothing", "on"}) EXPECT_FALSE(app.object(key)) << key;
  EXPECT_EQ(content(),
            "{\n  \"data\": {\n    \"list\": [\n      1,\n      \"two\",\n      null\n    "
            "]\n  },\n"
            "  \"name\": \"Bob\"\n}\n");
  EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600));
  EXPECT_EQ(entries(), (std::set<std::string>{".lock", "app.json"}));
  EXPECT_TRUE(complaints.empty());
  for (const char* name : {"", ".", "..", ".hidden", "a/b", "../up"})
    EXPECT_EQ(store.open(name), nullptr) << name;
}

TEST_F(PreferenceFilesTest, BrokenFileIsSetAsideWholeAndNamedInOneLine) {
  const std::string broken = "{\"precious\": \"half a fi";
  temporary.write("config/ostrel/app.json", broken);
  temporary.write("config/ostrel/app.json.broken", "an earlier one");
  const std::string aside = file.string() + ".broken-2";
  auto store = files();
  Preferences& app = *store.open("app");
  EXPECT_EQ(complaints,
            std::vector{file.string() + " could not be understood; it was set aside as " + aside});
  EXPECT_EQ(content("app.json.broken-2"), broken);
  EXPECT_EQ(content("app.json.broken"), "an earlier one");

  // Broken while the program runs: what it knows is kept.
  app.set("other", 2);
  store.flush();
  temporary.write("config/ostrel/app.json", "[]");
  app.set("new", 3);
  store.flush();
  EXPECT_EQ(parsePreferences(content()), (PreferenceMap{{"new", 3}, {"other", 2}}));
  EXPECT_EQ(content("app.json.broken-3"), "[]");
  EXPECT_EQ(complaints.size(), 2u);

  // An old domain that is only looked at.
  temporary.write("config/ostrel/old.json", "nonsense");
  EXPECT_TRUE(store.persistentDomain("old").empty());
  EXPECT_EQ(content("old.json.broken"), "nonsense");
  EXPECT_EQ(complaints.size(), 3u);
}

TEST_F(PreferenceFilesTest, OverlappingProgramsLoseNothingOfEachOther) {
  auto earlier = files();
  auto later = files();
  Preferences& a = *earlier.open("app");
  a.set("both", "old");
  a.set("removed by b", 1);
  earlier.flush();
  Preferences& b = *later.open("app");
  a.set("of a", 1);
  a.set("both", "a");
  b.set("of b", 2);
  b.remove("removed by b");
  earlier.flush();
  b.set("both", "b");  // the last to write a key decides
  later.flush();
  const PreferenceMap expected{{"both", "b"}, {"of a", 1}, {"of b", 2}};
  EXPECT_EQ(parsePreferences(content()), expected);
  EXPECT_EQ(b.integer("of a"), 1) << "a write also learns what the others wrote";
  a.set("of a", 5);
  earlier.flush();
  EXPECT_EQ(a.string("both"), "b");
  EXPECT_FALSE(a.object("removed by b"));

  // A person resets the preferences of a running program.
  fs::remove(file);
  a.set("after", 1);
  earlier.flush();
  EXPECT_EQ(parsePreferences(content()), (PreferenceMap{{"after", 1}}));
}

TEST_F(PreferenceFilesTest, ManyWritersAtOnce) {
  constexpr int kWriters = 4, kKeys = 25;
  {
    std::vector<std::jthread> writers;
    for (int writer = 0; writer < kWriters; ++writer) {
      writers.emplace_back([&, writer] {
        auto store = files(0ms);  // the store's own thread writes too
        for (int i = 0; i < kKeys; ++i) {
          store.open("app")->set(std::to_string(writer) + "." + std::to_string(i), i);
          store.flush();
        }
      });
    }
  }
  EXPECT_EQ(parsePreferences(content()).value_or(PreferenceMap()).size(), std::size_t{kWriters * kKeys});
  EXPECT_TRUE(complaints.empty());
}

TEST_F(PreferenceFilesTest, FullDiskKeepsTheOldFileAndTheNewValue) {
  auto store = files();
  Preferences& app = *store.open("app");
  app.set("draft", "short");
  store.flush();
  const std::string before = content();
  {
    const SmallDisk small(100);
    app.set("draft", std::string(5000, 'x'));
    store.flush();
    app.set("other", 1);
    store.flush();
    store.flush();
  }
  ASSERT_EQ(complaints.size(), 1u) << "one line for a trouble that goes on";
  EXPECT_EQ(complaints.front(), "Could not write " + file.string() + ": File too large");
  EXPECT_EQ(content(), before);
  EXPECT_EQ(entries(), (std::set<std::string>{".lock", "app.json"}));
  EXPECT_EQ(app.string("draft"), std::string(5000, 'x'));
  store.flush();
  EXPECT_EQ(parsePreferences(content()), (PreferenceMap{{"draft", std::string(5000, 'x')}, {"other", 1}}));
  {
    const SmallDisk small(100);
    app.set("draft", std::string(5000, 'y'));
    store.flush();
    app.set("draft", "changes again");
  }
  EXPECT_EQ(complaints.size(), 2u) << "a new trouble gets its own line";
  store.flush();
  EXPECT_EQ((*parsePreferences(content()))["draft"], "changes again");
}

TEST_F(PreferenceFilesTest, FoldersAndFilesThatCannotBeUsed) {
  temporary.write("config", "a file where the folder should be");
  {
    auto store = files();
    Preferences& app = *store.open("app");
    app.set("a", 1);
    store.flush();
    store.flush();
    EXPECT_EQ(app.integer("a"), 1);
    EXPECT_EQ(complaints.size(), 1u);
    fs::remove(temporary.path() / "config");
  }
  EXPECT_EQ(parsePreferences(content()), (PreferenceMap{{"a", 1}})) << "the last try is at the end";

  // What is there but can't be read is nobody's to overwrite.
  complaints.clear();
  fs::create_directory(folder / "dir.json");
  auto store = files();
  Preferences& dir = *store.open("dir");
  dir.set("a", 1);
  store.flush();
  EXPECT_TRUE(fs::is_directory(folder / "dir.json"));
  EXPECT_EQ(complaints, std::vector{"Could not read " + (folder / "dir.json").string() + ": Is a directory"});
}

}  // namespace
}  // namespace ostrel
