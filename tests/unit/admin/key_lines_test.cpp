// Editing stream-key files that people may have edited, too.
#include "admin/key_lines.h"

#include <gtest/gtest.h>

namespace oculora {
namespace {

TEST(KeyLines, OneLineChangesAndTheRestStays) {
  const struct {
    const char* before;
    const char* set;      // camera 7 gets the keys A and B
    const char* removed;  // camera 7 is removed
  } cases[] = {
      {"", "7=A/B\n", ""},
      {"7=x/y\n", "7=A/B\n", ""},
      {"7=x/y", "7=A/B\n", ""},
      {"1=a/b\n7=x/y\n70=c/d\n", "1=a/b\n7=A/B\n70=c/d\n", "1=a/b\n70=c/d\n"},
      {"17=a/b\n", "17=a/b\n7=A/B\n", "17=a/b\n"},
      {"17=a/b", "17=a/b\n7=A/B\n", "17=a/b\n"},
      {"# 7=old/er\n\n 7 = \"x/y\"\n7=z/z\n", "# 7=old/er\n\n7=A/B\n", "# 7=old/er\n\n"},
      {"=x\n7\n07=x/y\n", "=x\n7\n07=x/y\n7=A/B\n", "=x\n7\n07=x/y\n"},
  };
  for (const auto& [before, set, removed] : cases) {
    EXPECT_EQ(SetKeyLine(before, 7, "A", "B"), set) << before;
    EXPECT_EQ(RemoveKeyLine(before, 7), removed) << before;
  }
}

TEST(KeyLines, KeysThatReadersCanHold) {
  EXPECT_TRUE(IsStreamKey("a"));
  EXPECT_TRUE(IsStreamKey(std::string(35, 'Z')));
  EXPECT_TRUE(IsStreamKey("0_-9"));
  for (const std::string& key :
       {std::string(), std::string(36, 'Z'), std::string("a/b"), std::string("a=b"), std::string("a b"),
        std::string("\xc3\xa4"), std::string("a\n"), std::string(1, '\0')}) {
    EXPECT_FALSE(IsStreamKey(key)) << key;
  }
}

}  // namespace
}  // namespace oculora
