#include <fcntl.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "Conversations/AgentTranscript.h"
#include "Conversations/HistorySearch.h"
#include "Runtime/Failure.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;
using namespace std::literals;

const std::string kId = "0a1b2c3d-1111-4111-8111-00000000abcd";
const std::string kNotLinked =
    "Conversation history isn\xE2\x80\x99t linked for this agent yet. Terminal output is available below.";
const std::string kUnsupported = "Unsupported conversation reference. Use terminal output for now.";
const std::string kNotAvailable =
    "The linked conversation file isn\xE2\x80\x99t available. Use terminal output for now.";
const std::string kOutside = "Conversation path is outside the supported local history folder.";

TEST(ConversationId, OfUuidsAndTranscriptPaths) {
  const std::string upper = "0A1B2C3D-1111-4111-8111-00000000ABCD";
  const std::optional<std::string> id = kId;
  const std::optional<std::string> none;
  const struct {
    std::string reference;
    std::optional<std::string> expected;
  } table[] = {
      {kId, id},
      {"/a/b/" + upper + ".jsonl", id},
      {"rollout-2026-11-22T21-00-00-" + kId + ".jsonl", id},
      {"/x/rollout-" + kId + ".jsonl", id},
      {"/x/other-" + kId + ".jsonl", none},
      {"/x/rollout-" + kId + ".json", none},
      {"/x/agent-" + kId.substr(6) + ".jsonl", none},
      {"rollout-.jsonl", none},
      {".jsonl", none},
      {kId + " ", none},
  };
  for (const auto& row : table) EXPECT_EQ(conversationID(row.reference), row.expected) << row.reference;
}

class ResolveTest : public testing::Test {
 protected:
  // The resolved path, or the failure's words.
  std::string resolve(std::optional<std::string> reference, std::optional<std::string> kind,
                      const std::string& provider = "claude") {
    try {
      return transcripts.resolve(reference, kind, provider).string();
    } catch (const Failure& failure) {
      return failure.message();
    }
  }
  std::string write(const std::string& name) { return home.write(name, "").string(); }

  TemporaryFolder home;
  TemporaryFolder elsewhere;
  AgentTranscript transcripts{Environment{{}, home.path(), {}}};
};

TEST_F(ResolveTest, ReferencesThatCannotBe) {
  EXPECT_EQ(resolve(kId, "id", "gemini"), kNotLinked);
  EXPECT_EQ(resolve(std::nullopt, "id"), kNotLinked);
  EXPECT_EQ(resolve(kId, "url"), kUnsupported);
  EXPECT_EQ(resolve("../" + kId, "id"), kUnsupported);
  EXPECT_EQ(resolve(kId, "id"), kNotAvailable);  // not even a history folder
  EXPECT_EQ(resolve("relative.jsonl", "path"), kOutside);
}

TEST_F(ResolveTest, PathsWithinTheHistoryFolders) {
  const std::string file = write(".claude/projects/-p/" + kId + ".jsonl");
  EXPECT_EQ(resolve(file, "path"), file);
  EXPECT_EQ(resolve(file, "path", "Claude Code"), file);
  EXPECT_EQ(resolve(file, "path", "codex"), kOutside);
  EXPECT_EQ(resolve("~/.claude/projects/-p/" + kId + ".jsonl", "path"), file);
  EXPECT_EQ(resolve(home.path().string() + "/.claude/./projects/../projects/-p/" + kId + ".jsonl", "path"),
            file);
  const std::string missing = home.path().string() + "/.claude/projects/-p/new.jsonl";
  EXPECT_EQ(resolve(missing, "path"), missing);  // it may come yet
  for (const char* name : {"projects/a.json", "projects/.jsonl", "projects-old/a.jsonl", "a.jsonl"})
    EXPECT_EQ(resolve(write(".claude/"s + name), "path"), kOutside) << name;
  EXPECT_EQ(resolve(home.path().string() + "/.claude/projects/none/../../a.jsonl", "path"), kOutside);
  EXPECT_EQ(resolve(file + std::string("\0.jsonl", 7), "path"), kOutside);

  const std::string rollout = write(".codex/archived_sessions/rollout-" + kId + ".jsonl");
  EXPECT_EQ(resolve(rollout, "path", "CODEX"), rollout);
}

TEST_F(ResolveTest, LinksAreFollowedOnBothSides) {
  const auto real = elsewhere.write("real/-p/" + kId + ".jsonl", "");
  fs::create_directories(home.path() / ".claude");
  fs::create_directory_symlink(elsewhere.path() / "real", home.path() / ".claude/projects");
  const fs::path projects = home.path() / ".claude/projects";
  EXPECT_EQ(resolve((projects / "-p" / (kId + ".jsonl")).string(), "path"), real);
  EXPECT_EQ(resolve(real.string(), "path"), real);
  EXPECT_EQ(resolve(kId, "id"), real);

  // Links that lead out, lead nowhere yet, or lead in a circle.
  const auto outside = elsewhere.write("outside/a.jsonl", "");
  fs::create_symlink(outside, projects / "out.jsonl");
  fs::create_directory_symlink(elsewhere.path() / "outside", projects / "-out");
  fs::create_symlink(elsewhere.path() / "outside/later.jsonl", projects / "dangling.jsonl");
  fs::create_symlink("loop.jsonl", projects / "loop.jsonl");
  for (const char* name : {"out.jsonl", "-out/a.jsonl", "-out/new.jsonl", "dangling.jsonl", "loop.jsonl"})
    EXPECT_EQ(resolve((projects / name).string(), "path"), kOutside) << name;
}

TEST_F(ResolveTest, IdsAreSearchedByName) {
  const std::string file = write(".claude/projects/-p/" + kId + ".jsonl");
  write(".claude/projects/-p/sub/rollout-" + kId + ".jsonl");  // a name of Codex
  write(".claude/projects/-p/" + kId + "/subagents/agent-1.jsonl");
  write(".claude/projects/.hidden/" + kId + ".jsonl");
  write(".claude/projects/-p/." + kId + ".jsonl");
  fs::create_directories(home.path() / ".claude/projects/-q" / (kId + ".jsonl"));  // no file
  fs::create_directory_symlink(home.path() / ".claude/projects", home.path() / ".claude/projects/-q/loop");
  EXPECT_EQ(resolve(kId, "id"), file);

  const std::string rollout =
      write(".codex/sessions/2026/11/22/rollout-2026-11-22T10-00-00-" + kId + ".jsonl");
  EXPECT_EQ(resolve(kId, "id", "codex"), rollout);

  // What was found is kept while it exists; two files are an error.
  const std::string second = write(".claude/projects/-r/" + kId + ".jsonl");
  EXPECT_EQ(resolve(kId, "id"), file);
  EXPECT_EQ(resolve(kId, "id", "claude-2"), kNotAvailable);
  fs::remove(file);
  EXPECT_EQ(resolve(kId, "id"), second);
  fs::remove(second);
  EXPECT_EQ(resolve(kId, "id"), kNotAvailable);
}

TEST(HistorySearch, AMissIsBelievedUntilAFolderChangesOrHalfAMinuteIsOver) {
  TemporaryFolder folder;
  const fs::path root = folder.path() / "projects";
  const TimePoint start{1h};
  std::optional<HistorySearch> search;
  const auto found = [&](TimePoint now) {
    return search->find({root.string(), (folder.path() / "none").string()}, {"x.jsonl", ""}, now).size();
  };
  // Folder times of long ago, so that the search relies on them.
  const auto settle = [&] {
    constexpr timespec times[2] = {{1'700'000'000, 0}, {1'700'000'000, 0}};
    for (const fs::path& path : {root, root / "a", root / "a/b"})
      ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  };
  const auto begin = [&] {
    fs::remove_all(root);
    folder.write("projects/a/b/other.jsonl", "");
    settle();
    search.emplace();
    EXPECT_EQ(found(start), 0u);
  };
  begin();
  // A file that comes without a trace in any folder's time shows what is believed.
  folder.write("projects/a/b/x.jsonl", "");
  settle();
  EXPECT_EQ(found(start + 29s), 0u);
  EXPECT_EQ(found(start + 30s), 1u);

  for (const char* place :
       {"projects/a/b/x.jsonl", "projects/a/x.jsonl", "projects/x.jsonl", "projects/new/x.jsonl"}) {
    begin();
    folder.write(place, "");
    EXPECT_EQ(found(start + 1s), 1u) << place;
  }
}

}  // namespace
}  // namespace ostrel
