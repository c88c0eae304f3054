// Admission, user ids and error answers of the handler base.
#include <filesystem>

#include "capture.h"
#include "fixture.h"
#include "streaming.h"

namespace {

// A handler with the operations of the base in reach.
class Handler : public StreamingHandler {
 public:
  using StreamingHandler::Authenticate;
  using StreamingHandler::GetUid;
  using StreamingHandler::m_IsRelayedCmd;
  using StreamingHandler::StreamingHandler;
};

class HandlerBase : public SiteTest {
 protected:
  struct Call {
    explicit Call(std::unique_ptr<VELM::APIRequest> r) : request(std::move(r)), handler(request.get(), &response) {}
    std::unique_ptr<VELM::APIRequest> request;
    VELM::APIResponse response;
    Handler handler;
  };
  static int UidOf(const std::string& user) {
    return oculora::Database::Open(oculora::Database::Mode::kReadOnly, nullptr)->FindUser(user)->uid;
  }
  static void ExpectLogged(const std::string& text) {
    const std::string log = ReadFile(oculora::kLogPath);
    EXPECT_NE(log.find(text), std::string::npos) << log;
  }
};

TEST_F(HandlerBase, AdmitsBySessionOrPairInOrder) {
  const std::string pair = PairParams("NVR");
  const int anna = UidOf("anna");
  constexpr int kSystem = 1024;
  const struct {
    std::string params, cookies;
    bool admitted;
    int uid;
  } cases[] = {
      {Sid("anna"), "", true, anna},
      {Sid("root"), "", true, UidOf("root")},
      {Sid("Oculora"), "", true, UidOf("Oculora")},
      {Sid("guest"), "", false, UidOf("guest")},
      {Sid("guest") + pair, PairCookies(), true, kSystem},
      {Sid("anna") + pair, PairCookies(), true, anna},  // needs no pair match
      {pair, PairCookies(), true, kSystem},
      {PairParams("REC_SERVER") + "&isCrossSite=1", PairCookies(), true, kSystem},
      {PairParams("nvr"), PairCookies(), false, 0},
      {"&cookie=x", PairCookies(), false, 0},
      {pair, "", false, 0},
      {pair, "timestamp=12345", false, 0},
      {"&client=NVR&cookie=", PairCookies(), false, 0},
  };
  for (const auto& [params, cookies, admitted, uid] : cases) {
    Call call(Request("Query", params, cookies));
    EXPECT_EQ(call.handler.Authenticate() != 0, admitted) << params;
    EXPECT_EQ(call.handler.GetUid(), uid) << params;
  }
  EXPECT_EQ(Call(Request("Query", Sid("anna"))).handler.GetUid(), anna);
  EXPECT_EQ(ReadFile(oculora::kLogPath), "") << "a refusal is reported by nobody here";

  std::filesystem::remove(oculora::kRecorderPidPath);  // the application does not run
  EXPECT_EQ(Call(Request("Query", pair, PairCookies())).handler.Authenticate(), 0);
  EXPECT_NE(Call(Request("Query", Sid("anna"))).handler.Authenticate(), 0);
}

TEST_F(HandlerBase, AskingForTheUidFirstAuthenticatesAndSaysSo) {
  EXPECT_EQ(Call(Request("Query", Sid("guest"))).handler.GetUid(), UidOf("guest"));
  EXPECT_EQ(Call(Request("Query", PairParams("NVR"), PairCookies())).handler.GetUid(), 1024);
  const std::string call = "GetUid: api: VELM.Oculora.Stream.VideoStreaming, method: Query, version: 1";
  ExpectLogged(call + ", not authenticated, Result: [0]\n");
  ExpectLogged(call + ", not authenticated, Result: [1]\n");
  ExpectLogged("webapi/include/qmwebapihandler:");
}

TEST_F(HandlerBase, ARemoteCameraNeedsTheCentralHost) {
  EXPECT_EQ(Call(Request("Query", "")).handler.IsCamAvailiable(7), 1);
  EXPECT_EQ(Call(Request("Query", "")).handler.IsCamAvailiable(9), 0);
  ExpectLogged("IsCamAvailiable: Camera[9]: Modify detection param while CMS closed.\n");
  EXPECT_FALSE(Call(Request("Query", "&relayedCmd=true")).handler.m_IsRelayedCmd) << "no central host";
}

}  // namespace
