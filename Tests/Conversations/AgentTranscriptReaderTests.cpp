#include <gtest/gtest.h>

#include "Conversations/AgentTranscriptReader.h"
#include "Support/TemporaryFolder.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

const std::string kId = "0a1b2c3d-1111-4111-8111-00000000abcd";

Task<AgentTranscriptSnapshot> threadOf(std::string id) {
  if (id.starts_with("dead")) throw Failure("Codex does not answer.");
  co_return AgentTranscriptSnapshot{{{id, "user", "from the server", std::nullopt}}, {}};
}

Task<> loadInto(AgentTranscriptReader* reader, std::optional<std::string> reference,
                std::optional<std::string> kind, std::string provider, std::string* outcome) {
  try {
    const auto snapshot = co_await reader->load(reference, kind, provider);
    *outcome = snapshot.messages.at(0).id + ": " + snapshot.messages.at(0).text;
  } catch (const Failure& failure) {
    *outcome = failure.message();
  }
}

class AgentTranscriptReaderTest : public testing::Test {
 protected:
  std::string load(std::optional<std::string> reference, std::optional<std::string> kind,
                   const std::string& provider) {
    std::string outcome;
    scope.start(loadInto(&reader, reference, kind, provider, &outcome));
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

TEST_F(AgentTranscriptReaderTest, ReadsTheFileThatTheReferenceMeans) {
  home.write(".claude/projects/-p/" + kId + ".jsonl",
             R"({"type":"user","uuid":"u","message":{"content":"hello"}})"
             "\n");
  EXPECT_EQ(load(kId, "id", "claude"), "u: hello");
}

TEST_F(AgentTranscriptReaderTest, CodexConversationsWithoutAFileComeFromTheServer) {
  const std::string notAvailable =
      "The linked conversation file isn\xE2\x80\x99t available. Use terminal output for now.";
  const std::string moved = home.path().string() + "/.codex/sessions/rollout-x-" + kId + ".jsonl";
  EXPECT_EQ(load(kId, "id", "codex"), kId + ": from the server");
  EXPECT_EQ(load(moved, "path", "Codex CLI"), kId + ": from the server");
  EXPECT_EQ(load("/outside/" + kId + ".jsonl", "path", "codex"), kId + ": from the server");
  EXPECT_EQ(load(kId, std::nullopt, "codex"), kId + ": from the server");
  EXPECT_EQ(load(std::nullopt, "id", "codex"),
            "Conversation history isn\xE2\x80\x99t linked for this agent yet. "
            "Terminal output is available below.");
  EXPECT_EQ(load("dead" + kId.substr(4), "id", "codex"), "Codex does not answer.");
  EXPECT_EQ(load(kId, "id", "claude"), notAvailable);
  EXPECT_EQ(load("/x/short.jsonl", "path", "codex"),
            "Conversation path is outside the supported local history folder.");
  reader = AgentTranscriptReader(transcripts, pool);
  EXPECT_EQ(load(kId, "id", "codex"), notAvailable);
}

}  // namespace
}  // namespace ostrel
