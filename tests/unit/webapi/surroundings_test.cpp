// The working directory of requests, in a directory where anyone may make files.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "capture.h"
#include "dispatcher/surroundings.h"

namespace fs = std::filesystem;

namespace {

constexpr char kPath[] = "/tmp/work";

TEST(SurroundingsTest, WorkDirIsMadeForTheOwnerAlone) {
  umask(0);
  ASSERT_TRUE(oculora::EnterWorkDir(kPath));
  EXPECT_EQ(fs::current_path(), kPath);
  EXPECT_EQ(fs::status(kPath).permissions(), fs::perms::owner_all);
  fs::permissions(kPath, fs::perms::all);
  ASSERT_TRUE(oculora::EnterWorkDir(kPath));
  EXPECT_EQ(fs::status(kPath).permissions(), fs::perms::owner_all) << "others had been let in";
}

TEST(SurroundingsTest, WhatSomebodyElsePlantedIsNotEntered) {
  fs::create_directory("/tmp/victim");
  const struct {
    const char* name;
    std::function<void()> plant;
  } cases[] = {
      {"a link", [] { fs::create_symlink("/tmp/victim", kPath); }},
      {"a dangling link", [] { fs::create_symlink("/tmp/none", kPath); }},
      {"a file", [] { WriteFile(kPath, ""); }},
      {"another user's",
       [] {
         fs::create_directory(kPath);
         ASSERT_EQ(chown(kPath, 12345, 12345), 0);
       }},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    fs::current_path("/");
    fs::remove_all(kPath);
    test.plant();
    EXPECT_FALSE(oculora::EnterWorkDir(kPath));
    EXPECT_EQ(fs::current_path(), "/");
  }
}

}  // namespace
