// The hand-over between views of one session, with real processes.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <vector>

#include "capture.h"
#include "fixture.h"
#include "videoStreaming.h"

namespace {

constexpr char kViewFile[] = "/tmp/liveview_src.pid.view-session";

class ViewFile : public SiteTest {
 protected:
  void SetUp() override {
    SiteTest::SetUp();
    std::filesystem::remove_all(kViewFile);
  }
  static int Check(const char* sid, long timestamp) {
    const auto request = Request("Stream", "");
    VELM::APIResponse response;
    return VideoStreamingHandler(request.get(), &response).CheckTimeStamp(sid, timestamp);
  }
  static std::vector<long> Numbers() {
    std::istringstream text(ReadFile(kViewFile));
    std::vector<long> numbers;
    for (long number; text >> number;) numbers.push_back(number);
    return numbers;
  }
};

TEST_F(ViewFile, ViewsOfOneTimeStampShareItAndANewOneKillsThem) {
  const auto view = [](const char* sid, long timestamp) { Check(sid, timestamp), pause(); };
  Child first([&] { view("view-session", 5); });
  while (Numbers().size() < 2) usleep(1000);
  Child second([&] { view("view-session", 5); });
  Child other([&] { view("another-session", 5); });
  while (Numbers().size() < 3) usleep(1000);
  EXPECT_EQ(Numbers(), (std::vector<long>{5, first.pid(), second.pid()}));

  EXPECT_EQ(Check("view-session", 6), 0);
  EXPECT_EQ(Numbers(), (std::vector<long>{6, getpid()}));
  for (Child* older : {&first, &second}) {
    const int status = older->Wait(5000);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  }
  EXPECT_EQ(other.Wait(50), -1) << "another session's view runs on";
}

TEST_F(ViewFile, PidsThatAreNobodysStreamAreSkipped) {
  Child bystander([] { pause(); });
  WriteFile(kViewFile, "5\n0\n1\n-1\n-" + std::to_string(bystander.pid()) + "\n" + std::to_string(getpid()) + "\n");
  EXPECT_EQ(Check("view-session", 6), 0);
  EXPECT_EQ(Numbers(), (std::vector<long>{6, getpid()}));
  EXPECT_EQ(bystander.Wait(50), -1);
}

TEST_F(ViewFile, WhatCannotBeUsedIsRefusedOrReplaced) {
  EXPECT_EQ(Check(nullptr, 5), -1);
  WriteFile(kViewFile, "no number\n");
  EXPECT_EQ(Check("view-session", 6), 0);
  EXPECT_NE(ReadFile(oculora::kLogPath).find("Failed to read TimeStampOri.\n"), std::string::npos);
  EXPECT_EQ(Numbers(), (std::vector<long>{6, getpid()}));
  std::filesystem::remove(kViewFile);
  std::filesystem::create_directory(kViewFile);
  EXPECT_EQ(Check("view-session", 6), -1);
  EXPECT_NE(ReadFile(oculora::kLogPath).find("Fail to create new pid file.\n"), std::string::npos);
}

}  // namespace
