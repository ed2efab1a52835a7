#include <gtest/gtest.h>

#include "Conversations/AgentTranscriptReader.h"
#include "Support/TemporaryFolder.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

const std::string kOther = "7c9e6679-7425-40de-944b-e07fc1f90ae7";
const std::string kId = "0a1b2c3d-1111-4111-8111-00000000abcd";

Task<AgentTranscriptSnapshot> threadOf(std::string id) {
  if (id.starts_with("dead")) throw Failure("Codex does not answer.");
  co_return AgentTranscriptSnapshot{{{id, "user", "from the server", std::nullopt}}, {}};
}

class AgentTranscriptReaderTest : public testing::Test {
 protected:
  // The first message, or the words of the failure.
  std::string load(std::optional<std::string> reference, std::optional<std::string> kind,
                   const std::string& provider) {
    std::string outcome;
    const auto task = [](auto* own, auto path, auto how, auto who, std::string* text) -> Task<> {
      try {
        const auto snapshot = co_await own->load(path, how, who);
        *text = snapshot.messages.at(0).id + ": " + snapshot.messages.at(0).text;
      } catch (const Failure& failure) {
        *text = failure.message();
      }
    };
    scope.start(task(&reader, reference, kind, provider, &outcome));
    EXPECT_TRUE(loop.waitUntil([&] { return scope.running() == 0; }));
    return outcome;
  }

  TemporaryFolder home;
  VirtualLoop loop;
  BackgroundPool pool{2};
  AgentTranscript transcripts{Environment{{}, home.path(), {}}};
  AgentTranscriptReader reader{transcripts, pool, threadOf};
  TaskScope scope{loop};
};

TEST_F(AgentTranscriptReaderTest, CodexConversationsWithoutAFileComeFromTheServer) {
  home.write(".claude/projects/-p/" + kOther + ".jsonl",
             R"({"type":"user","uuid":"u","message":{"content":"hello"}})"
             "\n");
  EXPECT_EQ(load(kOther, "id", "claude"), "u: hello");
  const std::string notAvailable =
      "The linked conversation file isn\xE2\x80\x99t available. Use terminal output for now.";
  const std::string moved = home.path().string() + "/.codex/sessions/rollout-x-" + kId + ".jsonl";
  EXPECT_EQ(load(kId, "id", "codex"), kId + ": from the server");
  EXPECT_EQ(load(moved, "path", "Codex CLI"), kId + ": from the server");
  EXPECT_EQ(load("/outside/" + kId + ".jsonl", "path", "codex"), kId + ": from the server");
  EXPECT_EQ(load(kId, std::nullopt, "codex"), kId + ": from the server");
  EXPECT_EQ(load("dead" + kId.substr(4), "id", "codex"), "Codex does not answer.");
  EXPECT_EQ(load(kId, "id", "claude"), notAvailable);
  EXPECT_EQ(load("/x/short.jsonl", "path", "codex"),
            "Conversation path is outside the supported local history folder.");
  reader = AgentTranscriptReader(transcripts, pool);
  EXPECT_EQ(load(kId, "id", "codex"), notAvailable);
}

}  // namespace
}  // namespace ostrel
