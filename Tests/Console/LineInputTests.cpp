#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Console/LineInput.h"
#include "Support/VirtualLoop.h"

namespace ostrel::console {
namespace {

TEST(LineInput, HandsOnWholeLinesAndTakesNoneWithoutEnd) {
  VirtualLoop loop;
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const UniqueFd reader(ends[0]);
  UniqueFd writer(ends[1]);
  std::vector<std::string> lines;
  bool ended = false;
  const LineInput input(
      loop, reader.get(), [&](std::string line) { lines.push_back(std::move(line)); }, [&] { ended = true; });
  const auto write = [&](const std::string& text) {
    return ::write(writer.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
  };
  ASSERT_TRUE(write("one\ntw"));
  ASSERT_TRUE(write("o\n\n"));
  EXPECT_TRUE(loop.waitUntil([&] { return lines.size() == 3; }));
  EXPECT_EQ(lines, (std::vector<std::string>{"one", "two", ""}));
  const std::string piece(100'000, 'x');
  // Whoever reads no more leaves a full pipe behind.
  ::fcntl(writer.get(), F_SETFL, O_NONBLOCK);
  std::size_t sent = 0;
  EXPECT_TRUE(loop.waitUntil([&] {
    const ssize_t count =
        sent > 4 * LineInput::kLongest ? 0 : ::write(writer.get(), piece.data(), piece.size());
    sent += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    loop.post([] {});
    return ended;
  }));
  EXPECT_EQ(lines.size(), 3u);
  EXPECT_LT(sent, 2 * LineInput::kLongest);
}

}  // namespace
}  // namespace ostrel::console
