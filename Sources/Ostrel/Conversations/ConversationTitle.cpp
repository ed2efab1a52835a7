#include "Conversations/ConversationTitle.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "Conversations/LineScan.h"
#include "Conversations/TitleLines.h"
#include "Conversations/TitleSearch.h"
#include "Runtime/Failure.h"
#include "Runtime/UniqueFd.h"

namespace ostrel {

namespace {

// Calls `take` with each line of `data` in which `find` finds something, until it returns false.
template <class Find, class Take>
void eachLineWith(Find find, std::string_view data, Take take) {
  for (std::size_t from = 0;;) {
    const auto hit = find(data.substr(from));
    if (hit == std::string_view::npos) return;
    const auto before = data.rfind('\n', from + hit);
    const auto start = before == std::string_view::npos ? 0 : before + 1;
    const auto end = std::min(data.find('\n', from + hit), data.size());
    if (!take(data.substr(start, end - start), data.size() - start) || end == data.size()) return;
    from = end + 1;
  }
}

}  // namespace

std::optional<std::string> conversationTitle(std::string_view data, std::string_view sessionID) {
  TitleLines lines(sessionID);
  std::optional<std::string> custom, automatic, prompt;
  eachLineWith(findTitleMarker, data, [&](std::string_view line, std::size_t readable) {
    if (auto title = lines.title(line, readable))
      (title->custom ? custom : automatic) = std::move(title->text);
    return true;
  });
  if (custom) return custom;
  if (automatic) return automatic;
  eachLineWith(findPromptMarker, data, [&](std::string_view line, std::size_t readable) {
    prompt = lines.prompt(line, readable);
    return !prompt;
  });
  return prompt;
}

ConversationTitles::ConversationTitles(AgentTranscript transcripts) : transcripts_(std::move(transcripts)) {}

std::optional<std::string> ConversationTitles::linkedTitle(const std::optional<std::string>& reference,
                                                           const std::optional<std::string>& kind,
                                                           std::string_view provider, TimePoint now) {
  if (provider != "claude" || !reference) return std::nullopt;
  const auto id = conversationID(*reference);
  if (!id) return std::nullopt;
  std::string path;
  try {
    path = transcripts_.resolve(reference, kind, provider).string();
  } catch (const Failure&) {
    return std::nullopt;
  }

  Signature signature;
  struct stat info;
  if (::stat(path.c_str(), &info) == 0)
    signature = {info.st_size, std::int64_t{info.st_mtim.tv_sec} * 1'000'000'000 + info.st_mtim.tv_nsec};
  {
    const std::lock_guard guard(titleLock_);
    const auto known = titles_.find(path);
    if (known != titles_.end() && (known->second.signature == signature || now - known->second.read < kFresh))
      return known->second.title;
  }

  // Nonblocking, so that a named pipe put in the file's place can't hang the scan.
  const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!fd || ::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
  auto title = titleOfFile(fd.get(), static_cast<std::uint64_t>(info.st_size), *id);
  if (!title) return std::nullopt;
  constexpr std::size_t kTitles = 1000;
  const std::lock_guard guard(titleLock_);
  if (titles_.size() >= kTitles) titles_.clear();
  titles_.insert_or_assign(path, Known{signature, *title, now});
  return *title;
}

}  // namespace ostrel
