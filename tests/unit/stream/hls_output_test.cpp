// Playlists and slices as clients get them, and what is asked of other hosts.
#include <sys/stat.h>

#include <sstream>

#include "hls_fixture.h"

namespace fs = std::filesystem;

namespace {

const std::string kPlaylist = "Content-Type: application/x-mpegURL\r\n\r\n";
const std::string kSlice = "Content-Type: video/MP2T\r\n\r\n";
const std::string kApi = "api=VELM.Oculora.Stream.VideoStreaming&cameraId=3&";

class HlsOutput : public HlsTest {
 protected:
  void SetUp() override {
    HlsTest::SetUp();
    fs::create_directories(Dir());
    WriteFile(PidPath(), "1\n");
    WriteFile("/var/packages/Oculora/target/@rtsp_info/rtsp_key", "20=key/key2\n");
  }
  void TearDown() override {
    fs::remove_all(Dir());
    fs::remove(PidPath());
    HlsTest::TearDown();
  }
  // The answer behind what stdio held before.
  static std::string Get(const std::string& params) { return Ask("Stream", "20" + params).substr(1); }
  static bool Touched() {
    struct stat info {};
    return stat(PidPath().c_str(), &info) == 0 && info.st_mtime > 1000;
  }
};

TEST_F(HlsOutput, APlaylistNamesTheHostAsTheClientReachedIt) {
  const std::string global = RELAY_SUFFIX_GLOBAL;
  const std::string mainland = RELAY_SUFFIX_MAINLAND;
  const std::string redirected = "&isRedirectCgi=1&StmKey=key";
  const struct {
    std::string host;
    const char* https;  // null: not set
    std::string params;
    std::string prefix;
  } cases[] = {
      {"nvr:80", nullptr, "", "http://nvr:80"},
      {"nvr:80", "on", "", "https://nvr:80"},
      {"nvr", "", "", "https://nvr"},
      {"a" + global, nullptr, "", "https://a" + global},
      {"a" + mainland, nullptr, "", "https://a" + mainland},
      {global, nullptr, "", "http://" + global},
      {"a" + global + ":80", nullptr, "", "http://a" + global + ":80"},
      {"a" + global.substr(1) + "a", nullptr, "", "http://a" + global.substr(1) + "a"},
      {"nvr", nullptr, "&HostIp=host:1&useHttps=true", "http://nvr"},
      {"nvr", nullptr, redirected + "&HostIp=host:1&useHttps=true", "https://host:1"},
      {"nvr", "on", redirected + "&HostIp=host:1", "http://host:1"},
  };
  WriteFile(Dir() + "/hls.m3u8", "1 __HTTPHOST_PREFIX__/a\n2 __HTTPHOST_PREFIX__/b\n");
  for (const auto& c : cases) {
    env["HTTP_HOST"] = c.host;
    c.https != nullptr ? static_cast<void>(env["HTTPS"] = c.https) : static_cast<void>(env.erase("HTTPS"));
    EXPECT_EQ(Get(c.params), kPlaylist + "1 " + c.prefix + "/a\n2 " + c.prefix + "/b\n") << c.host << c.params;
  }
  env.erase("HTTP_HOST");
  EXPECT_EQ(Get(""), "");
  EXPECT_TRUE(Logged("OutputM3u8: Cam[20]: Failed to get Nd ip and port.\n"));
}

TEST_F(HlsOutput, ALongPlaylistIsRewrittenPieceByPiece) {
  const std::string split(4090, 'a');  // its placeholder crosses the end of the first piece and stays
  WriteFile(Dir() + "/hls.m3u8", split + "__HTTPHOST_PREFIX__\n__HTTPHOST_PREFIX__" + std::string(9000, 'b'));
  EXPECT_EQ(Get(""), kPlaylist + split + "__HTTPHOST_PREFIX__\nhttp://nvr:80" + std::string(9000, 'b'));
  const std::string whole(4076, 'a');  // this one ends with the piece
  WriteFile(Dir() + "/hls.m3u8", whole + "__HTTPHOST_PREFIX__c");
  EXPECT_EQ(Get(""), kPlaylist + whole + "http://nvr:80c");
  for (const std::size_t size : {0, 4095, 8190}) {
    WriteFile(Dir() + "/hls.m3u8", std::string(size, 'c'));
    EXPECT_EQ(Get(""), kPlaylist + std::string(size, 'c'));
  }
}

TEST_F(HlsOutput, ASliceComesWholeAndKeepsTheRemuxAlive) {
  for (const std::size_t size : {0, 1, 65535, 65536, 65537, 131072, 1000000}) {
    Touch(1000);
    std::string slice(size, '\0');
    for (std::size_t i = 0; i < size; ++i) slice[i] = static_cast<char>(i / 253 + i);
    WriteFile(Dir() + "/1.ts", slice);
    EXPECT_TRUE(Get("&SliceId=20/1.ts") == kSlice + slice) << size;
    EXPECT_TRUE(Touched()) << size;
    EXPECT_EQ(Logged("OutputHls: Cam[20]: Failed to get HLS content.\n"), size == 0) << size;
    fs::remove(oculora::kLogPath);
  }
}

TEST_F(HlsOutput, WhatIsMissingIsTriedFiveTimes) {
  EXPECT_EQ(Get("&SliceId=20/1.ts"), kSlice);
  EXPECT_EQ(g_World.slept, 5);
  EXPECT_EQ(Get(""), kPlaylist);
  EXPECT_EQ(g_World.slept, 10);
  EXPECT_TRUE(Logged("GetFileContent: Fail to open file [20/1.ts]\n"));
  EXPECT_TRUE(Logged("OutputHls: Cam[20]: Failed to get HLS content.\n"));
  EXPECT_TRUE(Logged("OutputM3u8: Cam[20]: Failed to get m3u8 content.\n"));
}

TEST_F(HlsOutput, OnlySlicesOfTheCameraAreServed) {
  fs::create_directories(Dir(kUnratedCam));
  for (const char* name :
       {"20/1.ts", "20/0.ts", "20/cnt", "20/a.ts", "20/-1.ts", "20/1.tsx", "20/.ts", "21/1.ts", "9.ts"})
    WriteFile(std::string("/tmp/ndcam/") + name, "slice");
  fs::create_symlink("/tmp/ndcam/20/1.ts", Dir() + "/2.ts");
  fs::create_directory(Dir() + "/3.ts");
  EXPECT_EQ(mkfifo((Dir() + "/4.ts").c_str(), 0600), 0);
  for (const char* id : {"20/1.ts", "20/0.ts", "9.ts"})
    EXPECT_EQ(Get(std::string("&SliceId=") + id), kSlice + "slice") << id;
  EXPECT_TRUE(Logged("RemoveOldSlice: Wrong strSliceId format [9.ts].\n"));
  Touch(1000);
  std::istringstream refused(
      "20/cnt 20/a.ts 20/-1.ts 20/1.tsx 20/.ts 20/ 21/1.ts 20/../21/1.ts 20//1.ts ./20/1.ts /tmp/ndcam/20/1.ts "
      "020/1.ts ../ndcam/20/1.ts 20/1.ts/ 20/1.ts%00 20/1.ts%0a 20%2f..%2f21/1.ts 20/2.ts 20/3.ts 20/4.ts");
  for (std::string id; refused >> id;) {
    fs::remove(oculora::kLogPath);
    EXPECT_EQ(Get("&SliceId=" + id), "") << id;
    EXPECT_TRUE(Logged("OutputHls: Cam[20]: Failed to check slice id.\n")) << id;
  }
  EXPECT_FALSE(Touched());
  fs::remove_all(Dir(kUnratedCam));
  fs::remove("/tmp/ndcam/9.ts");
}

TEST_F(HlsOutput, OldSlicesGoOnceFifteenFilesPiledUp) {
  const struct {
    int files;  // the first of them "cnt", the others slices up to 21
    int current;
    int oldest;  // afterwards
  } cases[] = {{14, 20, 9}, {15, 20, 15}, {22, 12, 7}, {22, 3, 1}, {22, 21, 16}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.files) + " " + std::to_string(c.current));
    fs::remove_all(Dir());
    fs::create_directories(Dir());
    WriteFile(Dir() + "/cnt", "1\n");
    for (int n = 21; n > 22 - c.files; --n) WriteFile(Dir() + "/" + std::to_string(n) + ".ts", "slice");
    Get("&SliceId=20/" + std::to_string(c.current) + ".ts");
    for (int n = 0; n <= 21; ++n) EXPECT_EQ(fs::exists(Dir() + "/" + std::to_string(n) + ".ts"), n >= c.oldest) << n;
    EXPECT_TRUE(fs::exists(Dir() + "/cnt"));
  }
}

TEST_F(HlsOutput, ACameraOfAnotherHostIsAskedForThere) {
  const std::string plain = "SendWebAPIToRec failted.[NdId: 12]\n";
  const std::string written = "SendWebAPIToRecAndWriteAsHeader failted.[NdId: 12]\n";
  const struct {
    const char* method;
    std::string params;
    std::string relayed;
    std::string answer;
    std::string failure;
  } cases[] = {
      {"Open", "&format=hls",
       "CamIdOnHost=9&HostIp=nvr%3A80&SID=" + SessionOf("root") + "&" + kApi +
           "format=hls&isRedirectCgi=1&itemType=0&method=Open&version=1",
       kSuccess, "HandleOpen: " + plain},
      {"Close", "", kApi + "isRedirectCgi=1&method=Close&version=1", kSuccess, "HandleClose: " + plain},
      {"Stream", "&format=hls",
       "HostIp=nvr%3A80&SliceId=&" + kApi + "format=hls&isRedirectCgi=1&method=Stream&useHttps=true&version=1|" +
           kPlaylist,
       ">", "OutputM3u8: " + written},
      {"Stream", "&SliceId=3/1.ts",
       "SliceId=3%2F1.ts&" + kApi + "format=hls&isRedirectCgi=1&method=Stream&version=1|" + kSlice, ">",
       "OutputHls: " + written},
  };
  env["HTTPS"] = "on";
  for (const auto& c : cases) {
    for (const int result : {0, -1}) {
      g_World.relayResult = result;
      fs::remove(kRelayed);
      EXPECT_EQ(Ask(c.method, "9" + c.params), c.answer);
      EXPECT_EQ(ReadFile(kRelayed), "12 " + c.relayed);
      EXPECT_EQ(Logged(c.failure), result != 0) << c.failure;
    }
    EXPECT_FALSE(fs::exists(Dir(9)));
  }
  env.erase("HTTP_HOST");
  fs::remove(kRelayed);
  EXPECT_EQ(Ask("Open", "9&format=hls"), std::string(">") + kFailure);
  EXPECT_TRUE(Logged("HandleOpen: Cam[9]: Failed to get Nd ip and port.\n"));
  EXPECT_EQ(ReadFile(kRelayed), "");
}

}  // namespace
