// Live views: admission by stream key, the order of the answers, and the file by which views of a session hand over.
#include <unistd.h>

#include <filesystem>
#include <tuple>

#include "capture.h"
#include "fixture.h"
#include "videoStreaming.h"

namespace {

const std::string kKeyFile = "/var/packages/Oculora/target/@rtsp_info/rtsp_key";
constexpr char kViewFile[] = "/tmp/liveview_src.pid.view-session";

class LiveView : public SiteTest {
 protected:
  static Json::Value Ask(const std::string& method, const std::string& params) {
    const auto request = Request(method, params);
    VELM::APIResponse response;
    VideoStreamingHandler(request.get(), &response).HandleProcess();
    EXPECT_TRUE(response.IsOutputEnabled());
    return response.GetEnvelope()["error"];
  }
  // An unknown method answers 401 behind admission and 105 before it.
  static bool IsAdmitted(int camera, const std::string& key) {
    return Ask("none", "&cameraId=" + std::to_string(camera) + "&StmKey=" + key)["code"] == 401;
  }
  static int CheckViewFile(const char* sid) {
    const auto request = Request("Stream", "");
    VELM::APIResponse response;
    return VideoStreamingHandler(request.get(), &response).CheckTimeStamp(sid, 6);
  }
  static bool IsLogged(const char* line) { return ReadFile(oculora::kLogPath).find(line) != std::string::npos; }
};

TEST_F(LiveView, StreamKeyMatchesEitherPartExactly) {
  const std::string longest(35, 'k');
  const std::tuple<std::string, std::string, bool> cases[] = {
      {"first/second", "first/second", false},
      {"first/second", "FIRST", false},
      {"first/two words", "two", true},
      {"only", "", true},  // no second part: an empty key is one
      {"", "", true},
      {"", "x", false},
      {"\"in/quotes\"", "quotes", true},
      {"/second", "second", false},  // nothing scanned before the slash, so nothing after it
      {longest + "/b", longest, true},
      {longest + "k/b", "b", false},
  };
  for (const auto& [line, given, admitted] : cases) {
    WriteFile(kKeyFile, "# 7=x/y\n\n17=other/keys\n 7 = " + line + " \n7=later/ones\n");
    EXPECT_EQ(IsAdmitted(7, given), admitted) << line << " " << given;
  }
}

TEST_F(LiveView, StreamKeyStandsInTheFileOfTheOwningServerUnderThisHostsId) {
  WriteFile(kKeyFile, "9=local/local2\n3=local/local2\n");
  WriteFile(kKeyFile + "12", "3=wrong/wrong2\n9=right/right2\n");
  EXPECT_TRUE(IsAdmitted(9, "right"));
  EXPECT_FALSE(IsAdmitted(9, "local") || IsAdmitted(9, "wrong"));
  std::filesystem::remove(kKeyFile);
  EXPECT_FALSE(IsAdmitted(7, "a"));
  EXPECT_TRUE(IsLogged("AuthByStmKey: Faild to load stream key from conf.\n"));
}

TEST_F(LiveView, AnswersComeInTheOrderOfTheChecks) {
  WriteFile(kKeyFile, "7=a/b\n8=a/b\n");
  const auto expect = [](const std::string& method, const std::string& params, int code, bool hasParams) {
    const Json::Value error = Ask(method, params);
    EXPECT_TRUE(error["code"] == code && error.isMember("data") == hasParams) << method << params;
  };
  expect("Stream", "&cameraId=99", 401, false);                      // unknown camera, before admission
  expect("Stream", "&cameraId=4294967303", 401, false);              // not that of 7
  expect("Stream", "&cameraId=7", 105, false);                       // not admitted
  expect("stream", "&cameraId=7&StmKey=a", 401, false);              // method in another case
  expect("Stream", "&cameraId=8&StmKey=a&format=mjpeg", 402, true);  // status, privilege not asked
  expect("Query", "&cameraId=7&StmKey=a", 105, true);                // status, privilege asked
}

TEST_F(LiveView, BrokenViewFileIsReplacedAndNobodyKilledWhoDoesNotStream) {
  Child bystander([] { setpgid(0, 0), pause(); });
  const std::string own = std::to_string(getpid()) + "\n";
  for (const std::string& pids :
       {"5\n0\n1\n-1\n-" + std::to_string(bystander.pid()) + "\n" + own, std::string("none\n")}) {
    WriteFile(kViewFile, pids);
    EXPECT_EQ(CheckViewFile("view-session"), 0);
    EXPECT_EQ(ReadFile(kViewFile), "6\n" + own);
  }
  EXPECT_EQ(bystander.Wait(50), -1);
  EXPECT_TRUE(IsLogged("Failed to read TimeStampOri.\n"));

  EXPECT_EQ(CheckViewFile(nullptr), -1);
  std::filesystem::remove(kViewFile);
  std::filesystem::create_directory(kViewFile);
  EXPECT_EQ(CheckViewFile("view-session"), -1);
  EXPECT_TRUE(IsLogged("Fail to create new pid file.\n"));
}

}  // namespace
