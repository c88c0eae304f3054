// Calls to other hosts as query texts, and the keys they carry.
#include <gtest/gtest.h>

#include <filesystem>

#include "capture.h"
#include "records/records.h"
#include "velm/relay.h"
#include "webapi/request_state.h"

namespace {

TEST(RelayTextTest, ValuesAreEncodedAndOnlyKnownKeysTravel) {
  Json::Value call;
  call["api"] = "VELM.Oculora.Stream.VideoStreaming";
  call["cameraId"] = 5;
  call["useHttps"] = true;
  call["SliceId"] = "5/1.ts&isRedirectCgi=1 \xc3\xa4%+";
  call["HostIp"] = Json::Value();
  call["client"] = "NVR";
  EXPECT_EQ(JsonToStrPair(call, true, true),
            "SliceId=5%2F1.ts%26isRedirectCgi%3D1%20%C3%A4%25%2B&api=VELM.Oculora.Stream.VideoStreaming&cameraId=5&"
            "useHttps=true");
  EXPECT_EQ(JsonToStrPair(call, false, false).substr(0, 18), "HostIp=&SliceId=5/");
  for (const Json::Value& nothing : {Json::Value(), Json::Value(5), Json::Value("a"), Json::Value(Json::objectValue)}) {
    EXPECT_EQ(JsonToStrPair(nothing, true, true), "");
  }
}

TEST(RelayTextTest, WhatWasEncodedIsReadBackTheSame) {
  std::string everything;
  for (int c = 1; c < 256; ++c) everything.push_back(static_cast<char>(c));
  Json::Value call;
  call["SliceId"] = everything;
  EXPECT_EQ(oculora::MakeRequest({JsonToStrPair(call, true, true), "", "", {}})->GetParam("SliceId", "").asString(),
            everything);
}

TEST(RelayTextTest, StreamKeyOfARemoteCameraIsTheFirstInItsServersFile) {
  std::filesystem::create_directories(oculora::kStreamKeyDir);
  WriteFile(std::string(oculora::kStreamKeyDir) + "/rtsp_key12", "5=one/two\n6=single\n");
  EXPECT_EQ(GetRecCamStmKey(12, 5), "one");
  EXPECT_EQ(GetRecCamStmKey(12, 6), "single");
  EXPECT_EQ(GetRecCamStmKey(12, 7), "");
  EXPECT_EQ(GetRecCamStmKey(1, 5), "");
}

}  // namespace
