// What recording servers tell, against what this host has.
#include <gtest/gtest.h>
#include <velm/camera.h>

#include <json/reader.h>

#include "admin/server_cameras.h"
#include "admin/server_pairing.h"
#include "servers/asking.h"
#include "servers/clean_text.h"

using namespace oculora;
using namespace std::string_literals;

namespace {

const ServerRecord kNorth{2, "North", "http://10.0.0.2", "secret"};

// Rows as they stand after the changes, as the records make them.
std::vector<CameraRecord> Applied(std::vector<CameraRecord> rows, const CameraChanges& changes) {
  std::erase_if(rows, [&](const CameraRecord& row) {
    const auto isRow = [&](const CameraRecord& camera) { return camera.id == row.id; };
    return std::any_of(changes.removed.begin(), changes.removed.end(), isRow) ||
           std::any_of(changes.changed.begin(), changes.changed.end(), isRow);
  });
  rows.insert(rows.end(), changes.changed.begin(), changes.changed.end());
  rows.insert(rows.end(), changes.added.begin(), changes.added.end());
  return rows;
}

ToldCamera Told(int id, const std::string& name) {
  return {.id = id, .name = name, .videoType = VIDEO_TYPE_H264, .fps = 25, .enabled = true};
}

CameraRecord Own(int id, const std::string& name, int owner = 0) {
  return {.id = id, .name = name, .videoType = VIDEO_TYPE_MJPEG, .ownerNdId = owner, .idOnRec = owner};
}

// "ID NAME, ..." by id.
std::string Names(std::vector<CameraRecord> rows) {
  std::sort(rows.begin(), rows.end(), [](const CameraRecord& a, const CameraRecord& b) { return a.id < b.id; });
  std::string text;
  for (const CameraRecord& row : rows) text += std::to_string(row.id) + " " + row.name + ", ";
  return text;
}

PeerAnswer Answer(const std::string& json) {
  PeerAnswer answer;
  answer.success = Json::Reader().parse(json, answer.data);
  EXPECT_TRUE(answer.success) << json;
  return answer;
}

std::string Cameras(const std::string& list) { return R"({"cameras":[)" + list + "]}"; }

}  // namespace

TEST(PlanSync, EachCameraKeepsItsIdAndGetsANameOfItsOwn) {
  std::string reason;
  std::vector<CameraRecord> rows = {Own(1, "Gate"), Own(7, "Yard (North)", 3)};
  const auto sync = [&](const std::vector<ToldCamera>& told) {
    const auto plan = PlanSync(kNorth, told, rows, reason);
    rows = Applied(rows, plan->changes);
    const auto again = PlanSync(kNorth, told, rows, reason);
    EXPECT_TRUE(again->changes.added.empty() && again->changes.changed.empty() && again->changes.removed.empty());
    return Names(rows);
  };
  EXPECT_EQ(sync({Told(1, "Gate"), Told(4, "Yard"), Told(5, "Gate (North)")}),
            "1 Gate, 7 Yard (North), 8 Gate (North), 9 Yard, 10 Gate (North) (North), ");
  // Names exchanged there, one camera gone, one new; what others have stays.
  EXPECT_EQ(sync({Told(1, "Yard"), Told(4, "Gate"), Told(6, "Roof")}),
            "1 Gate, 7 Yard (North), 8 Yard, 9 Gate (North), 11 Roof, ");
  const std::string longName(128, 'x');
  rows.push_back(Own(262143, longName));
  EXPECT_EQ(sync({Told(1, longName)}),
            "1 Gate, 7 Yard (North), 8 " + longName.substr(8) + " (North), 262143 " + longName + ", ");
  EXPECT_NE(sync({Told(1, "a"), Told(2, "b")}).find("2 b, "), std::string::npos) << "a free id below the highest";
}

TEST(PlanSync, SeesEveryChange) {
  std::string reason;
  const std::vector<CameraRecord> rows = PlanSync(kNorth, {Told(1, "a")}, {}, reason)->changes.added;
  for (const auto& change : std::initializer_list<void (*)(ToldCamera&)>{
           [](ToldCamera& camera) { camera.name = "b"; }, [](ToldCamera& camera) { camera.videoType = 1; },
           [](ToldCamera& camera) { camera.fps = 24; }, [](ToldCamera& camera) { camera.width = 640; },
           [](ToldCamera& camera) { camera.height = 480; }, [](ToldCamera& camera) { camera.enabled = false; }}) {
    ToldCamera told = Told(1, "a");
    change(told);
    EXPECT_EQ(PlanSync(kNorth, {told}, rows, reason)->changes.changed.size(), 1U);
  }
}

TEST(Description, IsRefusedOrCleaned) {
  const std::string good = R"({"id":5,"name":"a","type":"h264","keys":["A","B"]})";
  for (const std::string& bad :
       {R"([1])"s, R"({"cameras":{}})"s, Cameras("7"), Cameras(R"({"id":"5"})"), Cameras(R"({"id":0})"),
        Cameras(R"({"id":1e30})"), Cameras(R"({"id":262144})"), Cameras(good + "," + good)}) {
    const ServerState state = JudgeAnswer(kNorth, Answer(bad));
    EXPECT_TRUE(!state.told && !state.reason.empty()) << bad;
  }
  std::string many = good;
  for (int id = 6; id < 1006; ++id) many += R"(,{"type":"h264","id":)" + std::to_string(id) + "}";
  EXPECT_FALSE(JudgeAnswer(kNorth, Answer(Cameras(many))).told);

  const ServerState odd = JudgeAnswer(
      kNorth,
      Answer(Cameras(R"({"id":9,"name":"a\nb\u001b[1m\u0000","type":"mjpeg","fps":1e30,"width":-1,"height":"x",)"
                     R"("recording":[],"keys":["a/b","c"]},{"id":8,"name":" \t","type":"mjpeg","keys":["","k"]},)"
                     R"({"id":7,"type":"newer"})")));
  ASSERT_TRUE(odd.told && odd.told->cameras.size() == 2 && odd.told->notes.size() == 2);
  const ToldCamera& nameless = odd.told->cameras[0];
  const ToldCamera& wild = odd.told->cameras[1];
  EXPECT_EQ(nameless.name + nameless.keys.first + nameless.keys.second, "Camera 8kk");
  EXPECT_EQ(wild.name, "a b [1m");
  EXPECT_EQ(wild.fps + wild.width + wild.height, 0);
  EXPECT_EQ(wild.keys.first + wild.keys.second, "");
  EXPECT_EQ(CleanText("\xc3\xa4\xc2\x9b\xed\xa0\x80\xc0\xafx", 99), "\xc3\xa4 ?????x");
  EXPECT_EQ(CleanText("a\xc3\xa4", 2), "a");
}

TEST(Description, RefusalsHaveTheirReason) {
  PeerAnswer refusal;
  refusal.code = 105;
  for (const auto& [ahead, trouble] : std::map<int, ServerTrouble>{{0, ServerTrouble::kSecret},
                                                                   {-300, ServerTrouble::kSecret},
                                                                   {-301, ServerTrouble::kClock},
                                                                   {412, ServerTrouble::kClock}}) {
    refusal.clockAheadSeconds = ahead;
    EXPECT_EQ(JudgeAnswer(kNorth, refusal).trouble, trouble) << ahead;
  }
  EXPECT_EQ(JudgeAnswer(kNorth, refusal).reason, "its clock is 412 s ahead of this host's; set both by a time server");
}

TEST(ServerUrl, IsAHostOverHttp) {
  EXPECT_EQ(NormaliseServerUrl("http://host:8080//"), "http://host:8080");
  EXPECT_EQ(NormaliseServerUrl("https://[fe80::1]/nvr/"), "https://[fe80::1]/nvr");
  for (const char* bad : {"", "host", "ftp://host", "http://", "http:///", "http://u:p@host", "http://host/?a=b",
                          "http://host/#a", "http://ho st", "http:host"}) {
    EXPECT_FALSE(NormaliseServerUrl(bad)) << bad;
  }
}
