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

// Who reads conversations for others; tests make up their own.
class TranscriptSource {
 public:
  virtual ~TranscriptSource() = default;

  // The latest messages and details of the conversation that the reference means (see
  // `AgentTranscript::resolve`). Throws `Failure` and `Cancelled`. The source must outlive the task.
  virtual Task<AgentTranscriptSnapshot> load(std::optional<std::string> reference,
                                             std::optional<std::string> kind, std::string provider) = 0;
};

class AgentTranscriptReader final : public TranscriptSource {
 public:
  // Reads a Codex conversation from the running Codex server, by its thread id.
  using ThreadReader = std::function<Task<AgentTranscriptSnapshot>(std::string threadId)>;

  // `readThread` may be empty. The pool must outlive the reader's tasks.
  AgentTranscriptReader(AgentTranscript transcripts, Background& pool, ThreadReader readThread = {});

  // A Codex conversation without a readable file, or whose file has moved, comes from `readThread` where its
  // id is known. The failure is of the file; once `readThread` was asked, whatever that throws.
  Task<AgentTranscriptSnapshot> load(std::optional<std::string> reference, std::optional<std::string> kind,
                                     std::string provider) override;

 private:
  // Jobs share it, so that one that is still running when its task goes keeps what it works on.
  std::shared_ptr<TranscriptCache> cache_;
  SerialQueue queue_;
  ThreadReader readThread_;
};

}  // namespace ostrel
