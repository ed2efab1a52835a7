#include <sys/stat.h>

#include <gtest/gtest.h>

#include "Runtime/Files.h"
#include "Runtime/Json.h"
#include "Support/Failures.h"
#include "Support/SmallDisk.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

TEST(JsonValues, ParseRefusesWhatIsNotOneValue) {
  for (const std::string bad : {"", "{", "{}{}", "{\"a\":\"\x80\"}", "nul"})
    EXPECT_FALSE(json::parse(bad)) << bad;
  EXPECT_FALSE(json::parse(std::string(100'000, '[') + std::string(100'000, ']')));
  EXPECT_TRUE(json::parse(std::string(500, '[') + std::string(500, ']')));
}

TEST(JsonValues, MembersKeepTheirTypesApart) {
  const Json value = *json::parse(R"({"i":7,"d":1.5,"b":true,"u":18446744073709551615})");
  EXPECT_EQ(json::integer(value, "i"), 7);
  EXPECT_EQ(json::number(value, "i"), 7.0);
  EXPECT_FALSE(json::string(value, "i") || json::boolean(value, "i"));
  for (const char* other : {"d", "b", "u"}) EXPECT_FALSE(json::integer(value, other)) << other;
  EXPECT_FALSE(json::string(Json::array(), "s"));
  EXPECT_EQ(json::dump(Json{{"b", 1}, {"a", "\x80"}}), "{\"a\":\"\uFFFD\",\"b\":1}");
}

TEST(Files, ReadsWithinTheLimit) {
  TemporaryFolder folder;
  const auto file = folder.write("a/b", std::string(5000, 'x'));
  EXPECT_EQ(files::read(file, 5000)->size(), 5000u);
  EXPECT_EQ(files::read(file, 4999).error(), EFBIG);
  EXPECT_EQ(files::read(folder.path() / "none").error(), ENOENT);
  EXPECT_EQ(files::read(folder.path()).error(), EISDIR);
  ASSERT_EQ(::mkfifo((folder.path() / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(files::read(folder.path() / "pipe").error(), EINVAL);  // and does not wait for a writer
  // Files of /proc say that they are empty.
  EXPECT_FALSE(files::read("/proc/self/status")->empty());
}

TEST(Files, ReplaceIsAllOrNothing) {
  TemporaryFolder folder;
  const auto file = folder.path() / "new" / "deep" / "file";
  files::replace(file, "one", 0640);
  EXPECT_EQ(files::read(file), "one");
  EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0640));

  const auto link = folder.path() / "link";
  std::filesystem::create_symlink(file, link);
  files::replace(link, "two");
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(files::read(file), "two");

  // A full disk, stood in for by a limit on file sizes: the old file stays, no temporary file is left.
  {
    const SmallDisk small(1000);
    EXPECT_EQ(failureOf([&] { files::replace(file, std::string(5000, 'x')); }),
              "Could not write " + file.string() + ": File too large");
  }
  EXPECT_EQ(files::read(file), "two");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(file.parent_path()), {}), 1);

  EXPECT_THROW(files::replace(file / "below a file", "x"), Failure);
}

}  // namespace
}  // namespace ostrel
