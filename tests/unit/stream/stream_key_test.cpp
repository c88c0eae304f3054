// Admission by stream key, and the order of the answers around it.
#include <gtest/gtest.h>

#include <filesystem>

#include "capture.h"
#include "fixture.h"
#include "videoStreaming.h"

namespace {

constexpr char kKeyFile[] = "/var/packages/Oculora/target/@rtsp_info/rtsp_key";

class StreamKey : public SiteTest {
 protected:
  struct Answer {
    int code;
    bool hasParams;
    bool outputEnabled;
    std::string printed;
  };
  static Answer Ask(const std::string& method, const std::string& params) {
    const auto request = Request(method, params);
    VELM::APIResponse response;
    Answer answer;
    answer.printed = CaptureOutput([&] { VideoStreamingHandler(request.get(), &response).HandleProcess(); });
    const Json::Value& error = response.GetEnvelope()["error"];
    answer.code = error["code"].asInt();
    answer.hasParams = error.isMember("data");
    answer.outputEnabled = response.IsOutputEnabled();
    return answer;
  }
  // An unknown method answers 401 behind admission and 105 before it.
  static bool Admitted(int camera, const std::string& key) {
    return Ask("none", "&cameraId=" + std::to_string(camera) + key).code == 401;
  }
};

TEST_F(StreamKey, MatchesEitherPartExactly) {
  const std::string longest(35, 'k');
  const struct {
    std::string value;
    const char* given;
    bool admitted;
  } cases[] = {
      {"first/second", "&StmKey=first", true},
      {"first/second", "&StmKey=second", true},
      {"first/second", "", false},
      {"first/second", "&StmKey=first/second", false},
      {"first/second", "&StmKey=FIRST", false},
      {"first/two words", "&StmKey=two", true},
      {"only", "&StmKey=only", true},
      {"only", "", true},  // no second part: an empty key is one
      {"", "", true},
      {"", "&StmKey=x", false},
      {"/second", "&StmKey=second", false},  // nothing scanned before the slash, so nothing after it
      {longest + "/b", "&StmKey=kkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkk", true},
      {longest + "k/b", "&StmKey=b", false},
  };
  for (const auto& c : cases) {
    WriteFile(kKeyFile, "17=other/keys\n7=" + c.value + "\n");
    EXPECT_EQ(Admitted(7, c.given), c.admitted) << c.value << " " << c.given;
  }
}

TEST_F(StreamKey, LooksInTheFileOfTheOwningServerUnderThisHostsId) {
  WriteFile(kKeyFile, "9=local/local2\n3=local/local2\n");
  WriteFile(std::string(kKeyFile) + "12", "3=wrong/wrong2\n9=right/right2\n");
  EXPECT_FALSE(Admitted(9, "&StmKey=local"));
  EXPECT_FALSE(Admitted(9, "&StmKey=wrong"));
  EXPECT_TRUE(Admitted(9, "&StmKey=right"));
}

TEST_F(StreamKey, AMissingLineOrFileIsARefusalWithItsMessage) {
  for (const char* text : {"8=a/b\n", ""}) {
    std::filesystem::remove(oculora::kLogPath);
    *text != '\0' ? WriteFile(kKeyFile, text) : static_cast<void>(std::filesystem::remove(kKeyFile));
    EXPECT_FALSE(Admitted(7, "&StmKey=a"));
    EXPECT_NE(ReadFile(oculora::kLogPath).find("AuthByStmKey: Faild to load stream key from conf.\n"),
              std::string::npos);
  }
}

TEST_F(StreamKey, AnswersComeInTheOrderOfTheChecks) {
  WriteFile(kKeyFile, "7=a/b\n8=a/b\n");
  const struct {
    const char* method;
    std::string params;
    int code;
    bool hasParams;
  } cases[] = {
      {"Stream", "&cameraId=99", 401, false},                      // unknown camera, before admission
      {"Stream", "&cameraId=7", 105, false},                       // not admitted
      {"stream", "&cameraId=7&StmKey=a", 401, false},              // method in another case
      {"Stream", "&cameraId=8&StmKey=a&format=mjpeg", 402, true},  // status, privilege not asked
      {"Query", "&cameraId=7&StmKey=a", 105, true},                // status, privilege asked
      {"Query", "&cameraId=8" + Sid("anna"), 402, true},
  };
  for (const auto& c : cases) {
    const Answer answer = Ask(c.method, c.params);
    EXPECT_EQ(answer.code, c.code) << c.method << c.params;
    EXPECT_EQ(answer.hasParams, c.hasParams) << c.method << c.params;
    EXPECT_TRUE(answer.outputEnabled) << c.method << c.params;
  }
}

}  // namespace
