// Pages of events of several hosts: walking through them, and what is believed of a server's answer.
#include <gtest/gtest.h>
#include <json/json.h>

#include <array>
#include <sstream>
#include <tuple>

#include "events/paging.h"
#include "events/server_page.h"

using oculora::EventPage;
using oculora::EventPlace;
using oculora::PageQuestion;
using oculora::StandsBefore;

namespace {

using Tuples = std::vector<std::tuple<std::int64_t, int, int>>;

Tuples AsTuples(const std::vector<EventPlace>& places) {
  Tuples tuples;
  for (const EventPlace& place : places) tuples.emplace_back(place.startUs, place.server, place.id);
  return tuples;
}

EventPage PageOf(const std::vector<EventPlace>& places, const std::optional<EventPlace>& end) {
  EventPage page{.events = {}, .end = end};
  for (const EventPlace& place : places) page.events.push_back({place, {}});
  return page;
}

// Nothing is shown from behind the place where one of the hosts ended its page: the next one may begin there.
TEST(EventPages, MergeInOrderUpToWhereAHostMayHaveMore) {
  const EventPage own = PageOf({{9, 0, 4}, {9, 0, 2}, {5, 0, 1}}, {});
  const EventPage cut = PageOf({{9, 2, 7}, {6, 2, 6}}, EventPlace{6, 2, 6});
  const EventPage hides = PageOf({{9, 5, 3}}, EventPlace{7, 5, 2});  // its last event is of a camera unknown here
  const struct {
    std::vector<EventPage> pages;
    std::size_t limit;
    Tuples shown;
    EventPlace end;  // {}: all has been shown
  } cases[] = {
      {{own}, 3, {{9, 0, 4}, {9, 0, 2}, {5, 0, 1}}, {}},
      {{cut, own}, 5, {{9, 0, 4}, {9, 0, 2}, {9, 2, 7}, {6, 2, 6}}, {6, 2, 6}},
      {{hides, cut, own}, 5, {{9, 0, 4}, {9, 0, 2}, {9, 2, 7}, {9, 5, 3}}, {7, 5, 2}},
      {{hides, cut, own}, 2, {{9, 0, 4}, {9, 0, 2}}, {9, 0, 2}},
  };
  for (const auto& [pages, limit, shown, end] : cases) {
    const EventPage page = MergePages(pages, limit);
    std::vector<EventPlace> places;
    for (const auto& event : page.events) places.push_back(event.place);
    EXPECT_EQ(AsTuples(places), shown);
    EXPECT_EQ(AsTuples({page.end.value_or(EventPlace{})}), AsTuples({end}));
  }
}

// What a host lists behind its own cursor is what stands behind the client's.
TEST(EventPages, GoOnBehindACursorOnEveryHost) {
  for (const int at : {0, 2, 5}) {
    const auto cursor = oculora::ReadCursor(oculora::CursorText({9, at, 7}));
    ASSERT_TRUE(cursor);
    for (int number = 0; number < 27; ++number) {
      const EventPlace place{8 + number % 3, std::array{0, 2, 5}[number / 3 % 3], 6 + number / 9};
      const EventPlace there = oculora::CursorOn(place.server, *cursor);
      EXPECT_EQ(std::tie(place.startUs, place.id) < std::tie(there.startUs, there.id), StandsBefore(*cursor, place))
          << place.startUs << " " << place.server << " " << place.id << " behind one of " << at;
    }
  }
}

TEST(EventPages, CursorsOfClientsAreReadWithCare) {
  for (const char* text : {"", "5", "5-", "5-0", "5--3", "5-6-", "5-6-0", "5-6-7-8", "5-6x", "x-6", "5-6-99999999999",
                           "9223372036854775807-1", "99999999999999999999-1", " 5-6", "5-6-7 "}) {
    EXPECT_FALSE(oculora::ReadCursor(text)) << text;
  }
  const auto own = oculora::ReadCursor("1700000000000000-5");
  EXPECT_TRUE(own && own->startUs == 1700000000000000 && own->id == 5 && own->server == 0);
}

Json::Value Parsed(const std::string& text) {
  Json::Value value;
  std::istringstream(text) >> value;
  return value;
}

constexpr char kEvent[] = R"({"id":9,"startUs":500,"cameraId":3,"camera":"theirs","start":0,"length":12,"bytes":5e9,)"
                          R"("frames":30,"type":1,"cause":"request","state":"ready","videoType":"h264","file":"mp4"})";

TEST(ServerAnswers, PagesThatDoNotAnswerTheQuestionAreNone) {
  const oculora::KnownCameras cameras = {{3, {70, "Gate"}}};
  const PageQuestion question{2, 2, 100, 900, EventPlace{800, 2, 7}};
  const std::string event = kEvent;
  const auto with = [](const std::string& places) { return R"({"events":[)" + places + "]}"; };
  const auto at = [](const char* start, const char* id) {
    return std::string(R"({"cameraId":3,"startUs":)") + start + R"(,"id":)" + id + "}";
  };
  for (const std::string& answer :
       {std::string("[]"), std::string(R"({"events":{}})"), std::string(R"({"events":[],"next":"1-1"})"), with("7"),
        with(at("500", "2147483648")), with(at("500", "\"9\"")), with(at("99", "9")), with(at("900", "9")),
        with(at("800", "7")), with(at("1e30", "8")), with(at("500", "9") + "," + at("501", "1")),
        with(at("500", "9") + "," + at("500", "8") + "," + at("500", "7"))}) {
    EXPECT_FALSE(ReadServerPage(Parsed(answer), question, cameras)) << answer;
  }
  // Events of other cameras are left out; where the page ends is known all the same.
  const auto page =
      ReadServerPage(Parsed(R"({"next":"whatever","events":[)" + event + R"(,{"cameraId":4,"startUs":400,"id":11}]})"),
                     question, cameras);
  ASSERT_TRUE(page && page->end && page->events.size() == 1);
  EXPECT_EQ(AsTuples({*page->end, page->events[0].place}), (Tuples{{400, 2, 11}, {500, 2, 9}}));
  EXPECT_EQ(page->events[0].item["id"], "70:9");
}

TEST(ServerAnswers, EventsSayWhatThisHostCouldSay) {
  const oculora::KnownCameras cameras = {{3, {70, "Gate"}}};
  Json::Value event = Parsed(kEvent);
  const Json::Value good = *ReadServerEvent(event, cameras);
  EXPECT_TRUE(good["camera"] == "Gate" && good["cameraId"] == 70 && good["bytes"] == Json::Int64{5000000000} &&
              good["type"] == 1 && good["file"] == "mp4" && good["videoType"] == "h264" && good["state"] == "ready" &&
              good["cause"] == "request" && !good.isMember("startUs"))
      << good;
  for (const char* key : {"start", "length", "bytes", "frames", "type", "task"}) event[key] = "many";
  for (const char* key : {"cause", "state", "videoType"}) event[key] = "<b>news</b>";
  event["frames"] = -4;
  event["file"] = "../etc";
  event["kept"] = 1;
  event["reason"] = "no\r\nspace " + std::string(1000, 'x');
  event["more"] = "of it";
  const Json::Value odd = *ReadServerEvent(event, cameras);
  for (const char* key : {"start", "length", "bytes", "frames", "type", "task"}) EXPECT_EQ(odd[key], 0) << key;
  for (const char* key : {"cause", "state", "videoType", "file"}) EXPECT_EQ(odd[key], "") << key;
  EXPECT_EQ(odd["kept"], false);
  EXPECT_EQ(odd["reason"].asString().substr(0, 12), "no  space xx");
  EXPECT_LE(odd["reason"].asString().size(), 300U);
  EXPECT_EQ(odd.size(), good.size());
}

}  // namespace
