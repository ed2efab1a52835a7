#include "Conversations/AgentTranscriptReader.h"

#include <expected>

#include "Runtime/Failure.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

// The Codex thread that a reference names, whether or not there is a file.
std::optional<std::string> threadIdOf(const std::string& reference, const std::optional<std::string>& kind) {
  if (kind == "id") return text::canonicalUuid(reference) ? std::optional(reference) : std::nullopt;
  std::string_view stem = text::lastPathComponent(reference);
  if (const auto dot = stem.rfind('.'); dot != std::string_view::npos && dot > 0) stem = stem.substr(0, dot);
  if (stem.size() < 36) return std::nullopt;
  stem.remove_prefix(stem.size() - 36);
  return text::canonicalUuid(stem) ? std::optional<std::string>(stem) : std::nullopt;
}

}  // namespace

AgentTranscriptReader::AgentTranscriptReader(AgentTranscript transcripts, Background& pool,
                                             ThreadReader readThread)
    : cache_(std::make_shared<TranscriptCache>(std::move(transcripts))),
      queue_(pool),
      readThread_(std::move(readThread)) {}

Task<AgentTranscriptSnapshot> AgentTranscriptReader::load(std::optional<std::string> reference,
                                                          std::optional<std::string> kind,
                                                          std::string provider) {
  using Outcome = std::expected<AgentTranscriptSnapshot, Failure>;
  auto outcome =
      co_await queue_.run([cache = cache_, reference, kind, provider](std::stop_token stop) -> Outcome {
        try {
          return cache->load(reference, kind, provider, stop).snapshot();
        } catch (const Failure& failure) {
          return std::unexpected(failure);
        }
      });
  if (outcome) co_return std::move(*outcome);
  if (readThread_ && reference && text::lowercase(provider).find("codex") != std::string::npos)
    if (auto thread = threadIdOf(*reference, kind)) co_return co_await readThread_(std::move(*thread));
  throw outcome.error();
}

}  // namespace ostrel
