// The segmenter's object against real H.264 in a real pipe; what it makes is read back with ffprobe and ffmpeg.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

extern "C" {
#include <libavformat/avformat.h>
}

#include "capture.h"
#include "ffmpegWrap.h"
#include "records/records.h"

namespace fs = std::filesystem;

namespace {

constexpr char kDir[] = "/tmp/ndcam/7";
constexpr char kPrefix[] = "http://host/webapi/entry.cgi?api=a&SliceId=7/";

void* Object() {
  static void* const object = dlopen(SEGMENTER_PATH, RTLD_NOW | RTLD_LOCAL);
  return object;
}

template <typename Function>
Function* Find(const char* name) {
  return reinterpret_cast<Function*>(dlsym(Object(), name));
}

AVRational g_RateAtTrailer;

}  // namespace

// Stands before the library's.
extern "C" __attribute__((visibility("default"))) int av_write_trailer(AVFormatContext* output) {
  g_RateAtTrailer = output->streams[0]->avg_frame_rate;
  return Find<int(AVFormatContext*)>("av_write_trailer")(output);
}

namespace {

// What a command prints, errors included.
std::string Shell(const std::string& command) {
  FILE* pipe = popen((command + " 2>&1 </dev/null").c_str(), "r");
  std::string text;
  char buffer[65536];
  for (size_t size; (size = fread(buffer, 1, sizeof(buffer), pipe)) > 0;) text.append(buffer, size);
  EXPECT_EQ(pclose(pipe), 0) << command << "\n" << text;
  return text;
}

// The lines that are no comments.
std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    if (!line.empty() && line[0] != '#') lines.push_back(line);
  }
  return lines;
}

std::string MakeH264(int frames) {
  return Shell("ffmpeg -v error -f lavfi -i testsrc2=size=160x120:rate=25 -frames:v " + std::to_string(frames) +
               " -c:v libx264 -preset ultrafast -bf 0 -g 10 -sc_threshold 0 -f h264 -");
}

constexpr char kSps = '\x67';
constexpr char kPps = '\x68';

// Without the units that begin with `header`; the first `kept` of them stay.
std::string Without(std::string video, char header, int kept) {
  const std::string start("\0\0\1", 3);
  for (size_t at = 0; (at = video.find(start + header, at)) != std::string::npos;) {
    const size_t end = std::min(video.find(start, at + 4), video.size());
    if (kept-- > 0) {
      at = end;
    } else {
      video.erase(at, end - at);
    }
  }
  return video;
}

// Hashes of the decoded pictures; a line more for whatever the decoder complains about.
std::vector<std::string> Pictures(const std::string& file) {
  std::vector<std::string> hashes =
      Lines(Shell("ffmpeg -v error -i " + file + " -map 0:v -fps_mode passthrough -f framemd5 -"));
  for (std::string& line : hashes) line.erase(0, line.rfind(' ') + 1);
  return hashes;
}

// "pts,flags" of each packet.
std::vector<std::string> Packets(const std::string& file) {
  return Lines(Shell("ffprobe -v error -show_entries packet=pts,flags -of compact=p=0:nk=1:s=, " + file));
}

class Segmenter : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(Object(), nullptr) << dlerror();
    m_Calls = Find<const SegmenterCalls*()>("FFMPG_GetSegmenterCalls")();
    ASSERT_EQ(m_Calls->version, kSegmenterVersion);
    m_Calls->init();
    signal(SIGPIPE, SIG_IGN);
    Reset();
  }

  // An empty directory with a pipe, an empty log, a new segmenter.
  void Reset() {
    fs::remove_all(kDir);
    fs::create_directories(kDir);
    fs::current_path(kDir);
    ASSERT_EQ(mkfifo("fifo", 0777), 0);
    fs::remove(oculora::kLogPath);
    m_Segmenter = std::make_unique<H264TS>();
  }

  // Sends `video` through the pipe and returns the first result that is not SEGMENTER_OK.
  int Transcode(const std::string& video, int fps, const char* playlist = "hls.m3u8") {
    auto fed = std::async(std::launch::async, [&video] {
      const int pipe = open("fifo", O_WRONLY | O_CLOEXEC);
      if (write(pipe, video.data(), video.size()) < 0) errno = 0;  // nobody reads any more
      close(pipe);
    });
    int result = std::invoke(m_Calls->openInputFile, *m_Segmenter, "fifo");
    if (result == SEGMENTER_OK) result = std::invoke(m_Calls->openOutputFile, *m_Segmenter, "%d.ts");
    if (result == SEGMENTER_OK) result = std::invoke(m_Calls->startTransCode, *m_Segmenter, playlist, kPrefix, fps);
    fed.get();
    EXPECT_FALSE(HoldsPipe());
    return result;
  }

  // Whether a descriptor of the pipe is open.
  static bool HoldsPipe() {
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      if (fs::read_symlink(entry, gone).filename() == "fifo") return true;
    }
    return false;
  }

  // The text of the only line, or everything when it is not one line of this unit without category and level.
  static std::string Log() {
    std::string log = ReadFile(oculora::kLogPath);
    const std::string unit = "] - ffmpegWrap:";
    const size_t at = log.find(unit);
    if (at == std::string::npos || std::count(log.begin(), log.end(), '\n') != 1) return log;
    return log.substr(log.find(": ", at + unit.size()) + 2);
  }

  const SegmenterCalls* m_Calls = nullptr;
  std::unique_ptr<H264TS> m_Segmenter;
};

TEST_F(Segmenter, EveryPictureComesOutInSlicesThatStandAlone) {
  // Parameter sets come but once: the later slices must get them all the same.
  const std::string video = Without(Without(MakeH264(405), kSps, 1), kPps, 1);
  WriteFile("in.h264", video);
  ASSERT_EQ(Transcode(video, 25), SEGMENTER_OK);
  EXPECT_EQ(Log(), "");

  std::vector<std::string> pictures;
  std::vector<std::string> expectedEntries;
  int count = 0;
  for (int slice = 0; slice < 9; ++slice) {
    const std::string file = std::to_string(slice) + ".ts";
    if (slice >= 3) expectedEntries.push_back(kPrefix + file);
    EXPECT_EQ(count, slice * 50);
    for (const std::string& packet : Packets(file)) {
      const std::string expected = std::to_string(count * 3600) + "," + (count % 10 == 0 ? 'K' : '_');
      EXPECT_EQ(packet.substr(0, expected.size()), expected);
      ++count;
    }
    for (const std::string& hash : Pictures(file)) pictures.push_back(hash);
  }
  EXPECT_EQ(count, 405);
  EXPECT_EQ(pictures, Pictures("in.h264"));
  EXPECT_FALSE(fs::exists("9.ts"));
  EXPECT_EQ(Lines(ReadFile("hls.m3u8")), expectedEntries);
  EXPECT_NE(ReadFile("hls.m3u8").find("#EXT-X-MEDIA-SEQUENCE:3\n"), std::string::npos);
}

TEST_F(Segmenter, TimeStampsFollowTheGivenRate) {
  const std::string video = MakeH264(12);
  const struct {
    int fps, used, duration;
    const char* log;
  } rows[] = {{7, 7, 12857, ""}, {0, 10, 9000, "Wrong fps, patch it from 0 to 10.\n"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.fps);
    Reset();
    ASSERT_EQ(Transcode(video, row.fps), SEGMENTER_OK);
    EXPECT_EQ(Log(), row.log);
    // Sic: the denominator alone is set.
    EXPECT_EQ(g_RateAtTrailer.num, 25);
    EXPECT_EQ(g_RateAtTrailer.den, row.used);
    const std::vector<std::string> packets = Packets("0.ts");
    ASSERT_GE(packets.size(), 10u);
    for (int i = 0; i < 10; ++i) EXPECT_EQ(std::stoi(packets[static_cast<size_t>(i)]), i * row.duration);
  }
}

TEST_F(Segmenter, BadInputEndsWithItsCodeAndLine) {
  const std::string video = MakeH264(30);
  const std::string notOpened = "Could not open source file fifo.\n";
  const struct {
    const char* what;
    std::string data;
    int result;
    std::string log;
  } rows[] = {
      {"closed at once", "", SEGMENTER_NOT_OPENED, notOpened},
      {"no SPS", Without(video, kSps, 0), SEGMENTER_NOT_OPENED, notOpened},
      {"a playlist that never ends", "#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXTINF:2,\nfifo\n", SEGMENTER_NOT_H264,
       "Unsupported video codec [hls]. Only support H264.\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    Reset();
    testing::internal::CaptureStderr();
    EXPECT_EQ(Transcode(row.data, 25), row.result);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(Log(), row.log);
  }
}

TEST_F(Segmenter, OutputThatCannotBeWritten) {
  const std::string video = MakeH264(30);
  EXPECT_EQ(std::invoke(m_Calls->openOutputFile, *m_Segmenter, "%d.ts"), SEGMENTER_NO_INPUT);
  EXPECT_EQ(Log(), "Input file is not specified.\n");
  Reset();
  fs::create_directory("0.ts");
  EXPECT_EQ(Transcode(video, 25), SEGMENTER_NO_HEADER);
  EXPECT_EQ(Log(), "Failed to write output header...\n");
  Reset();
  EXPECT_EQ(Transcode(video, 25, "nowhere/hls.m3u8"), SEGMENTER_OK);
  EXPECT_EQ(Log(), "Failed to write trailer...\n");
}

TEST_F(Segmenter, ExportsItsInterfaceAlone) {
  for (const std::string& name : Lines(Shell("nm -D --defined-only --format=just-symbols -C " SEGMENTER_PATH))) {
    EXPECT_TRUE(name.rfind("FFMPG_", 0) == 0 || name.rfind("H264TS::", 0) == 0) << name;
  }
  EXPECT_NE(Find<EncoderMP3*()>("FFMPG_GetEncoderMp3Instance")(), nullptr);
  Find<void()>("FFMPG_FreeEncoderMp3Instance")();
}

}  // namespace
