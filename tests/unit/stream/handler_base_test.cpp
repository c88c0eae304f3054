// Admission, user ids and error answers of the handler base.
#include <gtest/gtest.h>

#include "capture.h"
#include "fixture.h"
#include "qmwebapihandler.h"

namespace {

// The base with its operations in reach.
class BareHandler;
using BareBase = QmWebAPIHandler<BareHandler, int (BareHandler::*)(CmsRelayParams&, CmsRelayTarget&, Json::Value&),
                                 int (BareHandler::*)(CmsRelayParams&),
                                 int (BareHandler::*)(CmsRelayParams&, CmsRelayTarget&, bool)>;

class BareHandler : public BareBase {
 public:
  using BareBase::Authenticate;
  using BareBase::BareBase;
  using BareBase::GetAPIInfo;
  using BareBase::GetAPIInfoStr;
  using BareBase::GetUid;
  using BareBase::m_IsRelayedCmd;
  using BareBase::SetErrorCode;
  using BareBase::WriteErrorResponse;
};

class HandlerBase : public SiteTest {
 protected:
  struct Call {
    std::unique_ptr<VELM::APIRequest> request;
    VELM::APIResponse response;
    BareHandler handler;
    explicit Call(std::unique_ptr<VELM::APIRequest> r) : request(std::move(r)), handler(request.get(), &response) {}
  };
  static int UidOf(const std::string& user) {
    std::string error;
    return oculora::Database::Open(oculora::Database::Mode::kReadOnly, &error)->FindUser(user)->uid;
  }
};

TEST_F(HandlerBase, AdmitsBySessionOrPairInOrder) {
  const std::string pair = PairParams("NVR");
  const struct {
    const char* name;
    std::string params;
    std::string cookies;
    bool admitted;
    int uid;  // -1: the system
  } cases[] = {
      {"privilege", Sid("anna"), "", true, UidOf("anna")},
      {"administrator", Sid("root"), "", true, UidOf("root")},
      {"service account", Sid("Oculora"), "", true, UidOf("Oculora")},
      {"session without rights", Sid("guest"), "", false, UidOf("guest")},
      {"session without rights, but a pair", Sid("guest") + pair, PairCookies(), true, -1},
      {"privilege needs no pair match", Sid("anna") + pair, PairCookies(), true, UidOf("anna")},
      {"pair", pair, PairCookies(), true, -1},
      {"pair as recording server", PairParams("REC_SERVER"), PairCookies(), true, -1},
      {"pair of another site", pair + "&isCrossSite=1", PairCookies(), true, -1},
      {"isCrossSite 2 is an ordinary pair", pair + "&isCrossSite=2", PairCookies(), true, -1},
      {"client in another case", PairParams("nvr"), PairCookies(), false, 0},
      {"no client", "&cookie=x", PairCookies(), false, 0},
      {"no time stamp cookie", pair, "", false, 0},
      {"old time stamp", pair, "timestamp=12345", false, 0},
      {"empty key", "&client=NVR&cookie=", PairCookies(), false, 0},
      {"no key", "&client=NVR", PairCookies(), false, 0},
      {"nothing", "", "", false, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Call call(Request("Query", c.params, c.cookies));
    EXPECT_EQ(call.handler.Authenticate() != 0, c.admitted);
    EXPECT_EQ(call.handler.GetUid(), c.uid == -1 ? 1024 : c.uid);
  }
  EXPECT_EQ(ReadFile(oculora::kLogPath), "") << "a refusal is reported by nobody here";
}

TEST_F(HandlerBase, WithoutTheApplicationOnlySessionsAreAdmitted) {
  SetRunning(false);
  EXPECT_EQ(Call(Request("Query", PairParams("NVR"), PairCookies())).handler.Authenticate(), 0);
  EXPECT_NE(Call(Request("Query", Sid("anna"))).handler.Authenticate(), 0);
}

TEST_F(HandlerBase, AskingForTheUidFirstAuthenticatesAndSaysSo) {
  EXPECT_EQ(Call(Request("Query", Sid("anna"))).handler.GetUid(), UidOf("anna"));
  EXPECT_EQ(ReadFile(oculora::kLogPath), "");
  EXPECT_EQ(Call(Request("Query", Sid("guest"))).handler.GetUid(), UidOf("guest"));
  EXPECT_EQ(Call(Request("Query", PairParams("NVR"), PairCookies())).handler.GetUid(), 1024);
  const std::string log = ReadFile(oculora::kLogPath);
  const std::string line =
      "GetUid: api: VELM.Oculora.Stream.VideoStreaming, method: Query, version: 1, not authenticated, Result: ";
  EXPECT_NE(log.find(line + "[0]\n"), std::string::npos) << log;
  EXPECT_NE(log.find(line + "[1]\n"), std::string::npos) << log;
  EXPECT_NE(log.find("webapi/include/qmwebapihandler:"), std::string::npos) << log;
}

TEST_F(HandlerBase, ErrorAnswersAlwaysCarryBothParameters) {
  Call call(Request("Query", ""));
  call.handler.WriteErrorResponse(Json::Value());
  const Json::Value& envelope = call.response.GetEnvelope();
  EXPECT_EQ(envelope["error"]["code"].asInt(), 0);
  EXPECT_EQ(envelope["error"]["data"]["param1"].asString(), "");
  EXPECT_TRUE(envelope["error"]["data"].isMember("param2"));
  call.handler.SetErrorCode(400, "a", "b");
  call.handler.SetErrorCode(100, "c", "");
  Json::Value data;
  data["more"] = 1;
  call.handler.WriteErrorResponse(data);
  EXPECT_EQ(call.response.GetEnvelope()["error"]["code"].asInt(), 100);
  EXPECT_EQ(call.response.GetEnvelope()["error"]["data"]["param1"].asString(), "c");
  EXPECT_EQ(call.response.GetEnvelope()["error"]["data"]["more"].asInt(), 1);
}

TEST_F(HandlerBase, NamesTheCallForForwarding) {
  Call call(Request("Stream", ""));
  EXPECT_EQ(call.handler.GetAPIInfoStr(), "api=VELM.Oculora.Stream.VideoStreaming&method=Stream&version=1");
  EXPECT_EQ(call.handler.GetAPIInfo()["version"].asInt(), 1);
  EXPECT_TRUE(call.handler.GetRedirectPrivData(5).isNull());
}

TEST_F(HandlerBase, ARemoteCameraNeedsTheCentralHost) {
  EXPECT_EQ(Call(Request("Query", "")).handler.IsCamAvailiable(7), 1);
  EXPECT_EQ(Call(Request("Query", "")).handler.IsCamAvailiable(9), 0);
  EXPECT_NE(ReadFile(oculora::kLogPath).find("IsCamAvailiable: Camera[9]: Modify detection param while CMS closed.\n"),
            std::string::npos);
  EXPECT_FALSE(Call(Request("Query", "&relayedCmd=true")).handler.m_IsRelayedCmd) << "no central host";
}

}  // namespace
