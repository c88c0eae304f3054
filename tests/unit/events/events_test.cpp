// Pages of events of several hosts: walking through them, and what is believed of a server's answer.
#include <gtest/gtest.h>
#include <json/json.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <tuple>

#include "events/paging.h"
#include "events/server_page.h"

using oculora::EventPage;
using oculora::EventPlace;
using oculora::PageQuestion;
using oculora::StandsBefore;

namespace {

constexpr int kServers[] = {0, 2, 5};
constexpr int kHidden = 3;  // each third event of server 5 is of a camera that is not known here

bool IsHidden(const EventPlace& place) { return place.server == 5 && place.id % kHidden == 0; }

// What a host answers: its events below the cursor as its own records compare them.
EventPage PageOf(int server, const std::vector<EventPlace>& all, const std::optional<EventPlace>& after, int limit) {
  EventPage page;
  const EventPlace cursor = after ? oculora::CursorOn(server, *after) : EventPlace{99, server, 1};
  int count = 0;
  std::optional<EventPlace> last;
  for (const EventPlace& place : all) {
    if (place.server != server || std::tie(place.startUs, place.id) >= std::tie(cursor.startUs, cursor.id)) continue;
    if (count++ == limit) {
      page.end = last;
      break;
    }
    last = place;
    if (!IsHidden(place)) page.events.push_back({place, {}});
  }
  return page;
}

// All pages one after the other; `down` does not answer for the first one.
std::vector<EventPlace> Walk(const std::vector<EventPlace>& all, int limit, int down,
                             std::optional<EventPlace>& first) {
  std::vector<EventPlace> seen;
  std::optional<EventPlace> cursor;
  do {
    std::vector<EventPage> pages;
    for (const int server : kServers) {
      if (cursor || server != down) pages.push_back(PageOf(server, all, cursor, limit));
    }
    const EventPage page = MergePages(std::move(pages), static_cast<std::size_t>(limit));
    EXPECT_LE(page.events.size(), static_cast<std::size_t>(limit));
    for (const auto& event : page.events) seen.push_back(event.place);
    if (!cursor) first = page.end;
    const bool moves = !cursor || !page.end || StandsBefore(*cursor, *page.end);
    EXPECT_TRUE(moves) << "the pages never end";
    if (!moves) break;
    cursor = page.end ? oculora::ReadCursor(CursorText(*page.end)) : std::nullopt;
    EXPECT_EQ(cursor.has_value(), page.end.has_value());
  } while (cursor);
  return seen;
}

using Tuples = std::vector<std::tuple<std::int64_t, int, int>>;

Tuples AsTuples(const std::vector<EventPlace>& places) {
  Tuples tuples;
  for (const EventPlace& place : places) tuples.emplace_back(place.startUs, place.server, place.id);
  return tuples;
}

TEST(EventPages, HoldEveryEventOnceAndInOrder) {
  std::mt19937 random(7);
  std::vector<EventPlace> all;
  for (int id = 1; id <= 12; ++id) {
    for (const int server : kServers) all.push_back({static_cast<std::int64_t>(random() % 4), server, id});
  }
  std::sort(all.begin(), all.end(), StandsBefore);
  std::vector<EventPlace> shown = all;
  std::erase_if(shown, IsHidden);
  for (const int limit : {1, 2, 3, 5, 40}) {
    for (const int down : {-1, 0, 2, 5}) {
      std::optional<EventPlace> first;
      const Tuples seen = AsTuples(Walk(all, limit, down, first));
      std::vector<EventPlace> expected = shown;
      std::erase_if(expected, [&](const EventPlace& place) {
        return place.server == down && (!first || !StandsBefore(*first, place));
      });
      EXPECT_EQ(seen, AsTuples(expected)) << limit << " a page, server " << down << " is down at first";
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
       {std::string("[]"), std::string("7"), std::string(R"({"events":{}})"),
        std::string(R"({"events":[],"next":"1-1"})"), with("7"), with("{}"), with(at("500", "0")),
        with(at("500", "2147483648")), with(at("500", "\"9\"")), with(at("99", "9")), with(at("900", "9")),
        with(at("800", "7")), with(at("800", "8")), with(at("1e30", "8")), with(at("500", "9") + "," + at("500", "9")),
        with(at("500", "9") + "," + at("501", "1")),
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
  event["type"] = 8;
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
