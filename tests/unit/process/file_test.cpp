// File helpers: key files, trees, locks.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>

#include "capture.h"
#include "velm/file.h"

namespace fs = std::filesystem;

namespace {

// What another process does just before each unlinkat of this one.
struct {
  int writes = 0;        // so many files into a directory that is about to go
  bool removes = false;  // the very thing
} g_Other;

}  // namespace

// In place of the C library's.
extern "C" __attribute__((visibility("default"))) int unlinkat(int dir, const char* name, int flags) noexcept {
  if ((flags & AT_REMOVEDIR) != 0 && g_Other.writes > 0) {
    --g_Other.writes;
    const int fd = openat(dir, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    close(openat(fd, "late", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    close(fd);
  }
  if (g_Other.removes) syscall(SYS_unlinkat, dir, name, flags);
  return static_cast<int>(syscall(SYS_unlinkat, dir, name, flags));
}

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

// Somebody else at work in the same tree, at the worst moments.
TEST(Tree, IsRemovedUnderTheHandsOfWritersAndOtherRemovers) {
  const struct {
    const char* name;
    int writes;
    bool removes;
    int result;
  } cases[] = {{"writes once more", 1, false, 0},
               {"writes a while", 5, false, 0},
               {"never ends", 1 << 20, false, -1},
               {"removes it too", 0, true, 0}};
  for (const auto& c : cases) {
    fs::create_directories("/tmp/busy/inner");
    WriteFile("/tmp/busy/inner/file", "x");
    g_Other = {c.writes, c.removes};
    EXPECT_EQ(QmRm("/tmp/busy"), c.result) << c.name;
    EXPECT_EQ(fs::exists("/tmp/busy"), c.result != 0) << c.name;
    EXPECT_TRUE(c.result == 0 || g_Other.writes > (1 << 20) - 100) << c.name << ": gave up late";
    g_Other = {};
    fs::remove_all("/tmp/busy");
  }
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
