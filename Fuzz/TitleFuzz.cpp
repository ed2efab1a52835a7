// The title of a file: the search from the end through blocks of any size gives what the plain definition
// gives.
#include <cstdint>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

#include "Conversations/ConversationTitle.h"
#include "Conversations/LineScan.h"
#include "Conversations/TitleSearch.h"
#include "Require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace ostrel;
  if (size < 4) return 0;
  const TitleWindow window{bytes[0] == 0 ? 2'000'000 : 1 + bytes[0] * std::uint64_t{8},
                           1 + bytes[1] + std::size_t{bytes[2]} * 8};
  // A few long lines make few blocks: one byte of the input stands for many.
  const std::size_t stretch = bytes[3];
  std::string data;
  for (const char c : std::string_view(reinterpret_cast<const char*>(bytes) + 4, size - 4))
    data.append(c == '\x01' ? stretch : 1, c == '\x01' ? 'f' : c);

  static const int fd = ::memfd_create("title", MFD_CLOEXEC);
  require(::ftruncate(fd, 0) == 0);
  require(::pwrite(fd, data.data(), data.size(), 0) == static_cast<ssize_t>(data.size()));
  const auto found = titleOfFile(fd, data.size(), "s", window);
  const std::size_t start = data.size() - std::min<std::size_t>(data.size(), window.bytes);
  require(found && *found == conversationTitle(std::string_view(data).substr(start), "s"));

  const auto title = data.rfind(kTitleMarker);
  const auto prompt = data.rfind(kPromptMarker);
  const bool both = title != data.npos && prompt != data.npos;
  require(findTitleMarker(data) == data.find(kTitleMarker) &&
          findPromptMarker(data) == data.find(kPromptMarker));
  require(findLastTitleMarker(data) == title);
  require(findLastMarker(data) == (both ? std::max(title, prompt) : std::min(title, prompt)));
  return 0;
}
