#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "Platform/Linux/InotifyWatcher.h"
#include "Platform/PathWatch.h"
#include "Support/NoPorts.h"
#include "Support/TemporaryFolder.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

TEST(PathWatch, TellsOfAPathWhoseFoldersComeAndGo) {
  VirtualLoop loop;
  InotifyWatcher files(loop);
  TemporaryFolder folder;
  const fs::path control = folder.path() / "home/control", socket = control / "s";
  int told = 0;
  PathWatch watch(files, socket, [&told] { ++told; });
  ASSERT_TRUE(watch.watches());
  const auto tells = [&](bool wanted) {
    told = 0;
    loop.runFor(1ms);
    return (told > 0) == wanted;
  };
  folder.write("unrelated", "x");
  EXPECT_TRUE(tells(false));
  fs::create_directories(control);  // faster than the watch can follow
  EXPECT_TRUE(tells(true));
  folder.write("home/unrelated", "x");
  folder.write("home/control/unrelated", "x");
  EXPECT_TRUE(tells(false));
  fs::create_symlink("/nowhere", socket);
  EXPECT_TRUE(tells(true));
  fs::remove(socket);
  EXPECT_TRUE(tells(true));
  fs::remove_all(folder.path() / "home");
  EXPECT_TRUE(tells(true));
  fs::create_directories(control);
  EXPECT_TRUE(tells(true));
  std::ofstream(socket) << "x";
  EXPECT_TRUE(tells(true));

  NoFiles none;
  EXPECT_FALSE(PathWatch(none, socket, [] {}).watches());
}

}  // namespace
}  // namespace ostrel
