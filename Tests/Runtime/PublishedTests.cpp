#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Runtime/Published.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;
using Words = std::vector<std::string>;

TEST(PublishedTest, ObserversMayChangeEverythingWhileBeingTold) {
  Published<int> value(0);
  EXPECT_FALSE(value.set(0));
  Words seen;
  Subscription own, victim, added;
  own = value.observe([&, kept = std::make_shared<std::string>("own")] {
    own.reset();
    victim.reset();
    added = value.observe([&] { seen.push_back("added " + std::to_string(*value)); });
    seen.push_back(*kept);
    value.set(2);  // tells the observers made so far, before this call returns
  });
  victim = value.observe([&] { seen.push_back("victim"); });
  const Subscription last = value.observe([&] { seen.push_back("last " + std::to_string(*value)); });
  EXPECT_TRUE(value.set(1));
  EXPECT_EQ(seen, (Words{"own", "last 2", "added 2", "last 2"}));
}

TEST(ThrottleTest, CollapsesBurstsAndServesTheLast) {
  VirtualLoop loop;
  const auto start = loop.now();
  std::vector<long> runs;
  std::optional<Throttle> throttle;
  throttle.emplace(loop, 50ms, [&] { runs.push_back((loop.now() - start) / 1ms); });
  throttle->request();
  throttle->request();
  EXPECT_TRUE(runs.empty());
  for (int i = 0; i < 12; ++i) {  // a request each 10 ms until 120
    loop.runFor(10ms);
    throttle->request();
  }
  loop.runFor(1s);
  EXPECT_EQ(runs, (std::vector<long>{0, 50, 100, 150}));
  throttle->request();
  loop.runUntilIdle();
  EXPECT_EQ(runs, (std::vector<long>{0, 50, 100, 150, 1120})) << "at once after a quiet interval";
  throttle->request();
  throttle.reset();
  loop.runFor(1s);
  EXPECT_EQ(runs.size(), 5u);

  throttle.emplace(loop, 50ms, [&, kept = std::make_shared<int>(9)] {
    throttle.reset();
    runs.push_back(*kept);
  });
  throttle->request();
  loop.runUntilIdle();
  EXPECT_EQ(runs.back(), 9);
}

}  // namespace
}  // namespace ostrel
