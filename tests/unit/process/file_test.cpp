// File helpers: key files, trees, locks.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "capture.h"
#include "velm/file.h"

namespace fs = std::filesystem;

namespace {

TEST(KeyFile, FindsTheFirstMatchAmongOddLines) {
  WriteFile("/tmp/keys", "# 7=comment\n\n17=wrong\n 7 = abc/def \n7=later\n8=\"quoted value\"\n9=\nKey=up\nlast=end");
  const struct {
    const char* key;
    bool caseless;
    int result;
    const char* value;
  } cases[] = {{"7", false, 1, "abc/def"}, {"8", false, 1, "quoted value"}, {"9", false, 1, ""},
               {"key", false, 0, "kept"},  {"key", true, 1, "up"},          {"last", false, 1, "end"},
               {"1", false, 0, "kept"}};
  for (const auto& c : cases) {
    std::string value = "kept";
    EXPECT_EQ(QmFileGetVal("/tmp/keys", c.key, value, c.caseless), c.result) << c.key;
    EXPECT_EQ(value, c.value) << c.key;
  }
  std::string value;
  EXPECT_EQ(QmFileGetVal("/tmp/no-such-file", "7", value, false), -1);
}

TEST(Tree, IsRemovedWithoutFollowingLinks) {
  fs::create_directories("/tmp/tree/a/b");
  fs::create_directories("/tmp/outside");
  WriteFile("/tmp/outside/keep", "x");
  WriteFile("/tmp/tree/a/b/file", "x");
  fs::create_directory_symlink("/tmp/outside", "/tmp/tree/a/link");
  EXPECT_EQ(QmRm("/tmp/tree"), 0);
  EXPECT_FALSE(fs::exists("/tmp/tree"));
  EXPECT_TRUE(fs::exists("/tmp/outside/keep"));
  EXPECT_EQ(QmRm("/tmp/tree"), -1);
  EXPECT_EQ(QmRm(""), -1);
}

TEST(Directories, AreMadeWithParentsAndOnlyForThisUser) {
  EXPECT_EQ(CreateDirP("/tmp/made/with/parents/", "", false), 0);
  EXPECT_EQ(CreateDirP("/tmp/made/with/parents", "", false), 0);
  EXPECT_EQ(fs::status("/tmp/made/with").permissions(), fs::perms::owner_all);
  WriteFile("/tmp/made/file", "x");
  EXPECT_EQ(CreateDirP("/tmp/made/file/below", "", false), -1);
  EXPECT_EQ(CreateDirP("/tmp/made/file", "", false), -1);
}

TEST(Lock, IsExclusiveBetweenObjectsAndReleasedWithThem) {
  std::list<std::string> before;
  fs::create_directories("/tmp/locks");
  {
    QmFlock first("/tmp/locks/l");
    EXPECT_EQ(GetFilesInDir("/tmp/locks", before), 0);
    EXPECT_TRUE(before.empty()) << "made before it is taken";
    ASSERT_EQ(first.LockEx(-1), 0);
    QmFlock second("/tmp/locks/l");
    EXPECT_EQ(second.LockEx(30), -1);
    first.UnLock();
    EXPECT_EQ(second.LockEx(0), 0);
  }
  QmFlock third("/tmp/locks/l");
  EXPECT_EQ(third.LockEx(0), 0);
  QmFlock nowhere("/tmp/no/such/dir/l");
  EXPECT_EQ(nowhere.LockEx(-1), -1);
}

TEST(Strings, ReplaceAndCopyWithinBounds) {
  EXPECT_EQ(StringReplaceSymbol("aXbXX", "X", "XY"), "aXYbXYXY");
  EXPECT_EQ(StringReplaceSymbol("abc", "", "x"), "abc");
  char buffer[4] = "zzz";
  Strncpy(buffer, "long text", sizeof(buffer));
  EXPECT_STREQ(buffer, "lon");
}

}  // namespace
