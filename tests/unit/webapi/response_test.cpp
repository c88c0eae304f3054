// The envelope of answers and their extra headers.
#include <gtest/gtest.h>

#include "capture.h"
#include "dispatcher/answer.h"
#include "velm/webapi.h"

namespace {

TEST(ResponseTest, LastVerdictWinsAndNullDataLeavesTheKeyOut) {
  VELM::APIResponse response;
  response.SetError(105, Json::Value());
  EXPECT_FALSE(response.GetEnvelope()["error"].isMember("data"));
  response.SetError(400, "why");
  EXPECT_EQ(response.GetEnvelope()["error"]["data"], "why");
  response.SetSuccess(Json::Value());
  EXPECT_EQ(response.GetEnvelope().getMemberNames(), std::vector<std::string>{"success"});
}

TEST(ResponseTest, HeaderThatHidesAnotherIsDropped) {
  VELM::APIResponse response;
  response.AddHeader("Set-Cookie: a=b");
  response.AddHeader("X: a\r\nSet-Cookie: evil=1");
  response.AddHeader("X: a\n\nbody");
  EXPECT_EQ(response.GetHeaders(), "Set-Cookie: a=b\r\n");
}

TEST(ResponseTest, AnswerIsHeaderEmptyLineAndOneJsonText) {
  VELM::APIResponse response;
  response.SetError(105, "no\xff");
  response.AddHeader("X: y");
  const std::string header = "Content-Type: application/json; charset=utf-8\r\nCache-Control: no-store\r\nX: y\r\n\r\n";
  EXPECT_EQ(CaptureOutput([&] { oculora::WriteAnswer(response, true); }), header);
  EXPECT_EQ(CaptureOutput([&] { oculora::WriteAnswer(response, false); }),
            header + R"({"error":{"code":105,"data":"no\ufffd"},"success":false})" + "\n");
  response.SetEnableOutput(false);
  EXPECT_EQ(CaptureOutput([&] { oculora::WriteAnswer(response, false); }), "");
}

}  // namespace
