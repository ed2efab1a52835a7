// What the stand-in does is seen by the tests that use it; that it leaves nothing behind is not.
#include <csignal>

#include <gtest/gtest.h>

#include "HerdrStandIn.h"
#include "Runtime/Files.h"
#include "Runtime/Text.h"
#include "Support/Eventually.h"
#include "Support/ForkedProcess.h"

namespace ostrel {
namespace {

TEST(HerdrStandIn, ItEndsWithItsOwner) {
  HerdrStandIn herdr;
  const ForkedProcess owner;
  auto variables = herdr.environment();
  variables["STANDIN_HERDR_OWNER"] = std::to_string(owner.pid());
  runCommand({herdr.executable(), "--session", "one", "session", "start"}, variables);
  const auto file = herdr.home() / "pid";
  herdr.open("one", {"sh", "-c", "echo $$ > " + file.string() + "; trap '' HUP TERM; cat"});
  std::optional<long long> pid;
  ASSERT_TRUE(eventually([&] {
    const auto written = files::read(file);
    if (written) pid = text::parseInteger(text::trim(*written));
    return pid.has_value();
  }));
  owner.kill();
  EXPECT_TRUE(eventually([&] { return !std::filesystem::exists(herdr.socket("one")); }));
  EXPECT_TRUE(eventually([&] { return ::kill(static_cast<pid_t>(*pid), 0) != 0; }));
}

}  // namespace
}  // namespace ostrel
