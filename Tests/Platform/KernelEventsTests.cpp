// Process exits and folder changes as the real kernel tells them to the real loop.
#include <fcntl.h>
#include <fstream>
#include <poll.h>

#include <gtest/gtest.h>

#include "Platform/Linux/InotifyWatcher.h"
#include "Platform/Linux/PidfdExits.h"
#include "Runtime/EpollLoop.h"
#include "Support/ForkedProcess.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

class KernelEvents : public testing::Test {
 protected:
  bool until(const std::function<bool()>& done) {
    for (const auto end = loop_.now() + 20s; !done() && loop_.now() < end;) {
      pollfd polled{.fd = loop_.descriptor(), .events = POLLIN, .revents = 0};
      if (::poll(&polled, 1, 1000) > 0) loop_.dispatch();
    }
    return done();
  }
  // Serves all that the kernel has told so far: inotify tells in the very call that changes the folder.
  void settle() {
    while (loop_.dispatch()) continue;
  }
  EpollLoop loop_;
};

TEST_F(KernelEvents, ProcessExitsAreToldOnceWhetherTheProcessEndsLaterOrHasEnded) {
  PidfdExits exits(loop_);
  int told = 0;
  ForkedProcess process;
  const Registration running = exits.watch(process.pid(), [&] { ++told; });
  Registration silent = exits.watch(process.pid(), [&] { told += 100; });
  EXPECT_TRUE(running && silent);
  settle();
  EXPECT_EQ(told, 0);
  silent.reset();
  process.kill();
  EXPECT_TRUE(until([&] { return told == 1; }));

  const Registration zombie = exits.watch(process.pid(), [&] { told += 10; });
  EXPECT_EQ(told, 1) << "told inside the call that registers";
  EXPECT_TRUE(until([&] { return told == 11; }));
  const pid_t gone = ForkedProcess().pid();
  Registration late = exits.watch(gone, [&] {
    told += 100;
    late.reset();
  });
  EXPECT_TRUE(until([&] { return told == 111; }));
  settle();
  EXPECT_EQ(told, 111);
}

class FileWatcherTest : public KernelEvents {
 protected:
  FileWatcher::Changed note(const std::string& who) {
    return [this, who](std::string_view name) { seen_ += who + ":" + std::string(name) + " "; };
  }
  std::string seen() {
    settle();
    return std::exchange(seen_, {});
  }
  const fs::path at(const char* name) const { return folder_.path() / name; }

  TemporaryFolder folder_;
  InotifyWatcher watcher_{loop_};
  std::string seen_;
};

TEST_F(FileWatcherTest, TellsWhatWasMadeWrittenReplacedAndRemoved) {
  const Registration first = watcher_.watchFolder(folder_.path(), note("a"));
  Registration second = watcher_.watchFolder(at("."), note("b"));
  ASSERT_TRUE(first && second);
  EXPECT_EQ(seen(), "");
  folder_.write("1.json", "x");
  EXPECT_TRUE(seen().starts_with("a:1.json b:1.json "));
  second.reset();
  {
    std::ofstream open(at("1.json"), std::ios::app);
    open << "y" << std::flush;
    EXPECT_EQ(seen(), "a:1.json ");
    fs::rename(at("1.json"), at("2.json"));
    EXPECT_EQ(seen(), "a:1.json a:2.json ");
  }
  EXPECT_EQ(seen(), "a:2.json ");
  fs::remove(at("2.json"));
  EXPECT_EQ(seen(), "a:2.json ");
  fs::create_directory(at("sub"));
  EXPECT_EQ(seen(), "a:sub ");
  folder_.write("sub/deep", "x");
  EXPECT_EQ(seen(), "");
}

TEST_F(FileWatcherTest, AFolderThatGoesIsToldOnceAndMayBeWatchedAgain) {
  EXPECT_FALSE(watcher_.watchFolder(at("missing"), note("m")));
  EXPECT_FALSE(watcher_.watchFolder(folder_.write("file", ""), note("f")));
  for (const bool moved : {false, true}) {
    fs::create_directory(at("sub"));
    Registration again;
    Registration watch = watcher_.watchFolder(at("sub"), [&](std::string_view name) {
      seen_ += "gone:" + std::string(name) + " ";
      watch.reset();
      fs::create_directory(at("sub"));
      again = watcher_.watchFolder(at("sub"), note("again"));
    });
    ASSERT_TRUE(watch);
    if (moved) {
      fs::rename(at("sub"), at("elsewhere"));
    } else {
      fs::remove(at("sub"));
    }
    EXPECT_EQ(seen(), "gone: ");
    if (moved) folder_.write("elsewhere/x", "");
    EXPECT_EQ(seen(), "");
    ASSERT_TRUE(again);
    fs::create_directory(at("sub/x"));
    EXPECT_EQ(seen(), "again:x ");
    again.reset();
    fs::remove_all(at("sub"));
  }
}

TEST_F(FileWatcherTest, LostEventsTellEveryFolderToLookAgain) {
  int limit = 0;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> limit;
  if (limit < 1 || limit > 100'000) GTEST_SKIP() << "the kernel queues " << limit << " events";
  fs::create_directory(at("quiet"));
  const Registration quiet = watcher_.watchFolder(at("quiet"), note("quiet"));
  const Registration busy = watcher_.watchFolder(folder_.path(), [](std::string_view) {});
  // By turns: the kernel folds an event into an equal one before it.
  const UniqueFd files[] = {UniqueFd(::open(folder_.write("a", "").c_str(), O_WRONLY | O_CLOEXEC)),
                            UniqueFd(::open(folder_.write("b", "").c_str(), O_WRONLY | O_CLOEXEC))};
  for (int i = 0; i <= limit; ++i) ASSERT_EQ(::pwrite(files[i % 2].get(), "x", 1, 0), 1);
  EXPECT_EQ(seen(), "quiet: ");
}

}  // namespace
}  // namespace ostrel
