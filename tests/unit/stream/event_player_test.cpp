// Playing an event: which frames at which pace, the progress cell, signals, and the pid file of a session's player.
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "capture.h"
#include "event_fixture.h"

namespace {

const std::string kWarning = "Location: ../images/warning.png\r\n\r\n";

class EventPlayer : public EventTest {
 protected:
  void SetUp() override {
    EventTest::SetUp();
    m_Event = AddEvent(7, "film");
  }
  static std::string Own() { return std::to_string(getpid()) + "\n"; }
  static bool IsLogged(const EventAnswer& answer, const std::string& line) {
    return answer.log.find(line) != std::string::npos;
  }
  int m_Event = 0;
};

TEST_F(EventPlayer, FramesAndPace) {
  using Numbers = std::vector<int>;
  const struct {
    std::string params, frames;
    Numbers wanted, cell;
    std::vector<std::int64_t> delays;  // in ms, the first ones
  } cases[] = {
      {"", "01234567", {}, {0, 1, 2, 3, 4, 5, 6, 7}, {40, 40}},
      {"&framestart=0&framestop=7&playrate=3", "036", {}, {0, 3, 6}, {40}},
      {"&framestart=2&framestop=4&playrate=-4", "234", {}, {2, 3, 4}, {160, 160, 160}},
      {"&framestart=5&framestop=2", "567", {}, {5, 6, 7}, {}},
      {"&framestart=9", "", {}, {}, {}},
      {"&framestart=6&framestop=1000", "67", {}, {6, 7}, {}},
      {"&framestop=2&playrate=0", "012", {}, {0, 1, 2}, {40}},
      {"&framestop=2&playrate=-99999999999", "012", {}, {0, 1, 2}, {2147483}},
      {"&changerate=true&playrate=2", "02345", {-1, -4, -4, 0, 9}, {2}, {40, 160, 160, 40, 40}},
  };
  for (const auto& [params, frames, wanted, cell, delays] : cases) {
    g_Film = {};
    g_Film.wanted = wanted;
    const EventAnswer answer = Fetch(m_Event, params);
    EXPECT_EQ(g_Film.frames, frames) << params;
    EXPECT_EQ(g_Film.cell, cell) << params;
    for (std::size_t i = 0; i < delays.size(); ++i) EXPECT_EQ(g_Film.delays.at(i) / 1000, delays[i]) << params << i;
    for (const char frame : frames) EXPECT_NE(answer.output.find(std::string("frame ") + frame), std::string::npos);
    EXPECT_TRUE(!answer.answered && answer.output.empty() == frames.empty()) << params;
    EXPECT_FALSE(std::filesystem::exists(PlayerFile())) << params;
  }
}

TEST_F(EventPlayer, SignalsEndAPlayerAndTheFileStaysWithItsOwner) {
  const auto write = [](const std::string& text) { return [text](int) { WriteFile(PlayerFile(), text); }; };
  const auto send = [](int signal) { return [signal](int) { raise(signal); }; };
  const auto both = [&](auto first, int signal) { return [=](int) { first(0), raise(signal); }; };
  const std::function<void(int)> vanish = [](int) { std::filesystem::remove(PlayerFile()); };
  const struct {
    const char* what;
    std::map<int, std::function<void(int)>> at;  // by frame
    std::string frames, left;
  } cases[] = {
      {"alone", {{2, send(SIGUSR1)}}, "01234567", ""},
      {"replaced", {{2, both(write("1\n"), SIGUSR1)}}, "012", "1\n"},
      {"replaced by one that is slow to write", {{2, send(SIGUSR1)}, {3, write("1\n")}}, "0123", "1\n"},
      {"replaced by one that writes just now", {{2, both(write(""), SIGUSR1)}}, "012", ""},
      {"ended", {{2, send(SIGTERM)}}, "012", ""},
      {"without a file", {{2, both(vanish, SIGUSR1)}}, "012", ""},
      {"named although it never was told", {{2, write("1\n")}}, "01234567", ""},
  };
  for (const auto& [what, at, frames, left] : cases) {
    g_Film = {};
    g_Film.onFrame = [&at = at](int frame) {
      if (at.count(frame) != 0) at.at(frame)(frame);
    };
    const EventAnswer answer = Fetch(m_Event, "");
    EXPECT_TRUE(g_Film.frames == frames && !answer.answered) << what << ": " << g_Film.frames;
    EXPECT_EQ(ReadFile(PlayerFile()), left) << what;
    EXPECT_FALSE(IsLogged(answer, "Fail to remove")) << what;
  }
  g_Film.onFrame = vanish;
  EXPECT_TRUE(IsLogged(Fetch(m_Event, ""), "RemovePidFile: Fail to remove file.[" + PlayerFile() + "]\n"));
}

TEST_F(EventPlayer, TheEarlierPlayerIsTold) {
  for (const bool asked : {true, false}) {
    Child earlier([] { pause(); });
    WriteFile(PlayerFile(), std::to_string(earlier.pid()) + "\n");
    Fetch(m_Event, asked ? "" : "&checkpgid=0");
    EXPECT_EQ(earlier.Wait(asked ? 20000 : 50), asked ? SIGUSR1 : -1);
  }
}

TEST_F(EventPlayer, WhatCannotBePlayedIsAPicture) {
  const std::string id = "&timestamp=1&eventId=" + std::to_string(m_Event);
  const std::string anna = Sid("anna") + id;
  const struct {
    std::string params;
    std::function<void()> spoil;
    bool answered;
    std::string log;
  } cases[] = {
      {PairParams("NVR") + id, [] {}, true, "Failed to get session ID.\n"},
      {anna, [] { std::filesystem::create_directories(PlayerFile() + "/x"); }, true, "Failed to write pid file.\n"},
      {anna + "&framestart=-1", [] {}, true, "Invalid parameters.\n"},
      {Sid("anna") + "&eventId=" + std::to_string(m_Event), [] {}, true, "Invalid parameters.\n"},
      {anna, [] { g_Film.init = -1; }, false, "Failed to extract record file.\n"},
      {anna, [] { g_Film.rate = 0; }, false, "Failed to extract record file.\n"},
      {anna, [this] { std::filesystem::remove(PathOf(m_Event)); }, false, "Get event play full path failed.\n"},
  };
  for (const auto& [params, spoil, answered, log] : cases) {
    g_Film = {};
    std::filesystem::remove_all(PlayerFile());
    spoil();
    const EventAnswer answer = Ask("EventMultipartFetch", params, "", PairCookies());
    EXPECT_EQ(answer.output, kWarning) << log;
    EXPECT_EQ(answer.answered, answered) << log;
    EXPECT_TRUE(!answered || answer.error["code"] == 0) << log;
    EXPECT_TRUE(IsLogged(answer, log)) << answer.log;
    EXPECT_FALSE(std::filesystem::is_regular_file(PlayerFile())) << log;
  }
}

TEST_F(EventPlayer, AProgressCellThatCannotBeWrittenEndsThePlayer) {
  g_Film.setResult = -1;
  const EventAnswer answer = Fetch(m_Event, "");
  EXPECT_TRUE(g_Film.frames == "0" && !answer.answered);
  EXPECT_TRUE(IsLogged(answer, "StreamOut: Fail to write event play progress.\n")) << answer.log;
}

}  // namespace
