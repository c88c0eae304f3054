// Requests for recorded events: ranges, ids, the order of the checks, what goes to other servers, the file's bytes.
#include <sys/file.h>

#include <filesystem>

#include "capture.h"
#include "event/byte_range.h"
#include "event/event_id.h"
#include "event/pacing.h"
#include "event_fixture.h"

namespace {

constexpr std::uint64_t kAllOnes = ~std::uint64_t{0};
constexpr char kNoRange[] = "";

TEST(EventValues, Ranges) {
  const std::string late(245, ' ');  // four characters of what follows the unit count
  const struct {
    std::string text;
    std::uint64_t start, end, length;
  } cases[] = {
      {kNoRange, 0, 999, 1000},
      {"bytes=100-199", 100, 199, 100},
      {"bytes=100-", 100, 999, 900},
      {"bytes=900-5000", 900, 999, 100},
      {"bytes=900-1000", 900, 999, 100},
      {"items=0-10", 0, kAllOnes, kAllOnes},
      {"bytes=500", 500, kAllOnes, kAllOnes},
      {"bytes=0-99,200-", 0, 999, 1000},
      {"bytes=0-99,200-299", 0, 99, 100},
      {"bytes=-500", kAllOnes - 499, 500, 1001},
      {"bytes=500--3", 500, 999, 500},
      {"bytes=500-100", 500, 100, kAllOnes - 398},
      {late + "bytes=4-56789", 4, 56, 53},
      {late + "bytes=1234-9", 1234, kAllOnes, kAllOnes},  // cut before the dash
  };
  for (const auto& [text, start, end, length] : cases) {
    const ByteRange range = ParseByteRange(text, 1000);
    EXPECT_TRUE(range.start == start && range.end == end && range.length == length)
        << text << ": " << range.start << "-" << range.end << " " << range.length;
  }
}

TEST(EventValues, Ids) {
  const struct {
    const char* text;
    bool hasCamera;
    int camera, event;
  } cases[] = {{"5", false, 0, 5},      {"3:5", true, 3, 5},   {"abc", false, 0, 0},
               {"", false, 0, 0},       {":", true, 0, 0},     {"3:", true, 3, 0},
               {"-3:-5", true, -3, -5}, {"3:5:7", true, 3, 5}, {"99999999999:5", true, 2147483647, 5}};
  for (const auto& [text, hasCamera, camera, event] : cases) {
    const EventIdParts parts = SplitEventId(text);
    EXPECT_TRUE(parts.hasCamera == hasCamera && parts.camId == camera && parts.eventId == event) << text;
  }
}

TEST(EventValues, Intervals) {
  const struct {
    float frameRate;
    int rate, interval;
  } cases[] = {{25, 1, 40000},
               {25, 8, 40000},
               {25, -1, 40000},
               {25, -4, 160000},
               {30, 1, 33333},
               {25, 0, 40000},
               {25, -2147483647 - 1, 2147483647},
               {1e-9F, 1, 2147483647}};
  for (const auto& [frameRate, rate, interval] : cases) EXPECT_EQ(IntervalUs(frameRate, rate), interval) << rate;
}

TEST_F(EventTest, ChecksComeInOrder) {
  const int event = AddEvent(7, "film");
  const int off = AddEvent(8, "film");  // a camera that is switched off
  const auto alert = [](int task) {
    return "&recEvtType=1&eventId=" + std::to_string(AddEvent(7, "film", ".mp4", 1, task));
  };
  const std::string own = "&eventId=" + std::to_string(event);
  const std::string anna = Sid("anna");
  const struct {
    std::string params;
    int code;  // -1: served
    bool hasParams;
    std::string log;
  } cases[] = {
      {own, 105, false, ""},
      {Sid("Oculora") + "&eventId=99:1", 105, true, ""},  // admitted, but may not play back
      {anna + "&eventId=99:1&recEvtType=5", 401, true, "Failed to load camera [99].\n"},
      {anna + own + "&recEvtType=5", 0, true, "Failed to create event object\n"},
      {anna + "&eventId=9999&mountId=4", 0, true,
       "Failed to load event [9999] with mountId [4], NdId [0], ArchId [0].\n"},
      {anna + "&eventId=abc", 0, true, "Failed to load event [0] with mountId [0], NdId [0], ArchId [0].\n"},
      {anna + own + "&recEvtType=1", 0, true, "Failed to load event"},
      {anna + "&eventId=" + std::to_string(AddEvent(6, "film")), 405, true, ""},
      {anna + alert(AddTask(6)), 405, true, ""},
      {anna + alert(4242), 401, true, "Failed to load camera [4242].\n"},  // no such task
      {anna + "&eventId=5&archId=3", 400, true, "Failed to get archive recording full path and size[5].\n"},
      {anna + alert(AddTask(7)), -1, false, ""},
      {anna + "&eventId=" + std::to_string(off), -1, false, ""},
      {anna + "&eventId=%227:" + std::to_string(event) + "%22", -1, false, ""},
  };
  for (const auto& [params, code, hasParams, log] : cases) {
    const EventAnswer answer = Ask("EventStream", params);
    EXPECT_EQ(answer.answered, code >= 0) << params;
    EXPECT_TRUE(code < 0 || (answer.error["code"] == code && answer.error.isMember("data") == hasParams)) << params;
    EXPECT_TRUE(log.empty() ? answer.log.empty() : answer.log.find(log) != std::string::npos) << params << answer.log;
  }
}

TEST_F(EventTest, PlayingFromTheFirstByteIsNotedForOwnEventsOnce) {
  const struct {
    const char* params;
    const char* range;
    bool noted;
  } cases[] = {{"", "", true},          {"", "bytes=0-1", true},           {"", "bytes=1-2", false},
               {"", "items=0-", false}, {"&writeHeader=false", "", false}, {"", "bytes=007-8", true}};
  for (const auto& [params, range, noted] : cases) {
    const int event = AddEvent(7, "film");
    Ask("EventStream", Sid("anna") + "&eventId=" + std::to_string(event) + params, range);
    EXPECT_EQ(WasNotified(event), noted) << params << range;
  }
}

TEST_F(EventTest, EventsOfOtherServersAreForwarded) {
  const struct {
    std::string method, params, range, call;
  } cases[] = {
      {"EventStream", "&eventId=9:44&playrate=3", "bytes=5-",
       "&isRedirectCgi=true&eventId=\"3:44\"&HTTP_RANGE=bytes=5-"},
      {"EventStream", "&eventId=9:44&HTTP_RANGE=bytes=7-", "", "&isRedirectCgi=true&eventId=\"3:44\"&HTTP_RANGE="},
      {"EventMultipartFetch", "&eventId=9:44&playrate=3&changerate=true", "",
       "&isRedirectCgi=true&eventId=\"3:44\"&framestart=0&framestop=-1&timestamp=0&checkpgid=1"},
      {"EventMultipartFetch", "&eventId=9:44&framestart=2&framestop=9&timestamp=77&checkpgid=0", "",
       "&isRedirectCgi=true&eventId=\"3:44\"&framestart=2&framestop=9&timestamp=77&checkpgid=0"},
  };
  for (const auto& [method, params, range, call] : cases) {
    for (const int result : {0, -1}) {
      g_Servers = {result, ""};
      const EventAnswer answer = Ask(method, Sid("anna") + params, range);
      EXPECT_EQ(g_Servers.call,
                std::string("12 api=VELM.Oculora.Stream&method=").append(method).append("&version=1" + call));
      EXPECT_EQ(answer.answered, result != 0) << params;
      EXPECT_TRUE(result == 0 || answer.error["code"] == 401) << params;
      const bool isLogged = answer.log.find("Failed to do redirect.\n") != std::string::npos;
      EXPECT_EQ(isLogged, result != 0 && method == "EventStream") << params;
    }
  }
}

TEST_F(EventTest, TheFileIsSentByRangesAndLockedForEachReadAlone) {
  const std::string content(40000, 'x');
  const int event = AddEvent(7, content, ".avi.mp4");
  const std::string id = Sid("anna") + "&eventId=" + std::to_string(event);
  const auto header = [](const std::string& length, const std::string& range) {
    return "Status: 206 Partial Content\r\nAccept-Ranges: bytes\r\nContent-Length: " + length +
           "\r\nContent-Range: bytes " + range + "/40000\r\nConnection: close\r\nContent-Type: video/avi\r\n\r\n";
  };
  const std::string ones = std::to_string(kAllOnes);
  EXPECT_EQ(Ask("EventStream", id).output, header("40000", "0-39999") + content);
  EXPECT_EQ(g_Files.locks, (std::vector<int>{LOCK_SH, LOCK_UN, LOCK_SH, LOCK_UN, LOCK_SH, LOCK_UN}));

  EventAnswer answer = Ask("EventStream", id, "items=0-10");
  EXPECT_EQ(answer.output, header(ones, "0-" + ones) + content);
  EXPECT_TRUE(!answer.answered && answer.log.find("Error Read(0) <= 0 \n") != std::string::npos) << answer.log;
  answer = Ask("EventStream", id, "bytes=-500");
  EXPECT_EQ(answer.output, header("1001", std::to_string(kAllOnes - 499) + "-500"));
  EXPECT_EQ(answer.error["code"], 400);
  EXPECT_NE(answer.log.find("Fail to fseeko, DataStart = -500.\n"), std::string::npos);
  EXPECT_NE(answer.log.find("Failed to output Data.\n"), std::string::npos);

  // Only a paired host's own range counts in place of the client's.
  const std::string forwarded = "&eventId=" + std::to_string(event) + "&isRedirectCgi=true&HTTP_RANGE=bytes=8-9";
  EXPECT_EQ(Ask("EventStream", PairParams("NVR") + forwarded, "bytes=0-0", PairCookies()).output,
            header("2", "8-9") + "xx");
  EXPECT_EQ(Ask("EventStream", Sid("anna") + forwarded, "bytes=0-0").output, header("1", "0-0") + "x");

  g_Files.locks.clear();
  g_Files.onLock = [path = PathOf(event)] {
    if (g_Files.locks.size() == 2) std::filesystem::resize_file(path, 16384);
  };
  answer = Ask("EventStream", id);
  EXPECT_EQ(answer.output, header("40000", "0-39999") + content.substr(0, 16384));
  EXPECT_TRUE(!answer.answered && answer.log.find("Error Read(0) <= 0 \n") != std::string::npos) << answer.log;
  g_Files.refuseOpen = true;
  answer = Ask("EventStream", id);
  EXPECT_EQ(answer.error["code"], 400);
  EXPECT_NE(answer.log.find("Failed to open file: " + PathOf(event) + "\n"), std::string::npos) << answer.log;
}

}  // namespace
