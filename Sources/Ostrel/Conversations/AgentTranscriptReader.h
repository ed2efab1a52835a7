// The one reader of transcripts: it serves one call at a time, off the main thread, and holds what has been
// parsed.
//
// Made by the composition root; the conversation view asks it once a second. Main thread only.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Conversations/TranscriptCache.h"
#include "Runtime/Background.h"
#include "Runtime/Task.h"

namespace ostrel {

class AgentTranscriptReader {
 public:
  // Reads a Codex conversation from the running Codex server, by its thread id.
  using ThreadReader = std::function<Task<AgentTranscriptSnapshot>(std::string threadId)>;

  // `readThread` may be empty. The pool must outlive the reader's tasks.
  AgentTranscriptReader(AgentTranscript transcripts, BackgroundPool& pool, ThreadReader readThread = {});

  // The latest messages and details of the conversation that the reference means (see
  // `AgentTranscript::resolve`). A Codex conversation without a readable file, or whose file has moved, comes
  // from `readThread` where its id is known. Throws `Failure` (of the file; once `readThread` was asked,
  // whatever that throws) and `Cancelled`. The reader must outlive the task.
  Task<AgentTranscriptSnapshot> load(std::optional<std::string> reference, std::optional<std::string> kind,
                                     std::string provider);

 private:
  // Jobs share it, so that one that is still running when its task goes keeps what it works on.
  std::shared_ptr<TranscriptCache> cache_;
  SerialQueue queue_;
  ThreadReader readThread_;
};

}  // namespace ostrel
