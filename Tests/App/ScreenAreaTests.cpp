#include <gtest/gtest.h>

#include "App/ScreenArea.h"

namespace ostrel {
namespace {

using Words = std::vector<std::uint32_t>;

TEST(ScreenArea, ABarTakesOnlyOfTheScreenOnWhichItStands) {
  // A large screen, and a smaller one on its right, level with its top.
  const Size desktop{3200, 1080};
  const Rect large{0, 0, 1920, 1080};
  const Rect small{1920, 0, 1280, 1024};
  const auto visible = [&](const Rect& screen, const Words& words) {
    return visibleArea(screen, desktop, strutsOf(words), {});
  };
  const Words below = {0, 0, 0, 40, 0, 0, 0, 0, 0, 0, 0, 1919};
  EXPECT_EQ(visible(large, below), (Rect{0, 0, 1920, 1040}));
  EXPECT_EQ(visible(small, below), small);
  // At the lower border of the smaller screen: counted from the desktop's.
  const Words belowSmall = {0, 0, 0, 56 + 30, 0, 0, 0, 0, 0, 0, 1920, 3199};
  EXPECT_EQ(visible(small, belowSmall), (Rect{1920, 0, 1280, 994}));
  EXPECT_EQ(visible(large, belowSmall), large);
  // Between the two: at the left border of the right one.
  const Words between = {1920 + 48, 0, 0, 0, 0, 1023, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(visible(small, between), (Rect{1968, 0, 1232, 1024}));
  EXPECT_EQ(visible(large, between), large) << "it lies behind this one";
  const Words right = {0, 60, 24, 0, 0, 0, 0, 1023, 1920, 3199, 0, 0};
  EXPECT_EQ(visible(small, right), (Rect{1920, 24, 1220, 1000}));
  EXPECT_EQ(visible(large, right), large);
  EXPECT_EQ(visible(large, {0, 0, 30, 0}), (Rect{0, 30, 1920, 1050})) << "the older word has no ends";
  EXPECT_EQ(visible(large, {0, 0, 0}), large);
  EXPECT_EQ(visible(large, {0, 0, 4'000'000'000, 4'000'000'000}), large);
}

TEST(ScreenArea, WorkAreasCountWhereTheyMeanTheScreen) {
  const Rect first{0, 0, 1280, 800};
  const Rect second{1280, 0, 1280, 800};
  const Size desktop{2560, 800};
  // Of each monitor.
  const std::vector<Rect> each = {{0, 27, 1280, 773}, {1280, 0, 1280, 800}};
  EXPECT_EQ(visibleArea(first, desktop, {}, each), each[0]);
  EXPECT_EQ(visibleArea(second, desktop, {}, each), second);
  // Of the whole desktop, together with a bar of which only its strut tells.
  const std::vector<Rect> whole = {{0, 0, 2560, 770}};
  const std::vector<Strut> strut = strutsOf(Words{0, 0, 24, 0, 0, 0, 0, 0, 0, 1279, 0, 0});
  EXPECT_EQ(visibleArea(first, desktop, strut, whole), (Rect{0, 24, 1280, 746}));
  EXPECT_EQ(visibleArea(first, desktop, {}, std::vector<Rect>{{0, 0, 0, 0}}), first);
}

}  // namespace
}  // namespace ostrel
