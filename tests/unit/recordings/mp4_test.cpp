// MP4 recordings, read by FFmpeg: whole, torn, on a full disk, finished in several attempts; and how frames are timed.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "capture.h"
#include "front/unique_fd.h"
#include "recorder/av/bitstream_filter.h"
#include "recorder/av/video_encoder.h"
#include "recorder/recording/frame_times.h"
#include "recorder/recording/mp4_writer.h"
#include "recordings/mp4/mp4_finish.h"
#include "recordings/mp4/mp4_fragments.h"
#include "velm/camera.h"

using namespace oculora;

namespace {

int g_CallsLeft = -1;  // that change a file and still succeed, as for a process about to be killed; -1: all

bool Fails() {
  if (g_CallsLeft != 0) {
    g_CallsLeft -= g_CallsLeft > 0 ? 1 : 0;
    return false;
  }
  errno = EIO;
  return true;
}

}  // namespace

extern "C" ssize_t pwrite(int fd, const void* bytes, std::size_t size, off_t offset) {
  return Fails() ? -1 : static_cast<ssize_t>(syscall(SYS_pwrite64, fd, bytes, size, offset));
}
extern "C" int ftruncate(int fd, off_t size) noexcept {
  return Fails() ? -1 : static_cast<int>(syscall(SYS_ftruncate, fd, size));
}
extern "C" int fsync(int) { return Fails() ? -1 : 0; }

namespace {

constexpr int kFps = 5, kSeconds = 8;
const std::string kPath = "/tmp/recording.mp4";
using Buffer = std::vector<std::uint8_t>;

struct Frame {
  Buffer bytes;
  bool key = false;
};

// A camera's frames, a key frame a second.
std::vector<Frame> Shoot(std::int32_t videoType, int width) {
  VideoEncoder encoder;
  const AvPtr<AVFrame> picture(av_frame_alloc());
  const AvPtr<AVPacket> packet(av_packet_alloc());
  const AVCodecID codec = videoType == VIDEO_TYPE_MPEG4 ? AV_CODEC_ID_MPEG4 : AV_CODEC_ID_H264;
  EXPECT_EQ(encoder.Open(codec, width, 48, kFps), 0);
  picture->width = width;
  picture->height = 48;
  picture->format = encoder.PixelFormat();
  EXPECT_EQ(av_frame_get_buffer(picture.get(), 0), 0);
  std::vector<Frame> frames;
  for (int i = 0; i < kFps * kSeconds; ++i) {
    for (const int plane : {0, 1, 2}) {
      for (int at = 0; at < 24 * picture->linesize[plane]; ++at) {
        picture->data[plane][at] = static_cast<std::uint8_t>(at % 7 * i);
      }
    }
    picture->pts = i;
    EXPECT_EQ(encoder.Encode(*picture, *packet), 0);
    frames.push_back({{packet->data, packet->data + packet->size}, (packet->flags & AV_PKT_FLAG_KEY) != 0});
  }
  return frames;
}

const std::vector<Frame>& H264() {
  static const std::vector<Frame> frames = Shoot(VIDEO_TYPE_H264, 64);
  return frames;
}

// How many of the frames were taken. The writer is closed.
int Record(Mp4Writer& writer, const std::vector<Frame>& frames, std::int32_t videoType, int secondsReserved) {
  unlink(kPath.c_str());
  std::string reason;
  EXPECT_TRUE(writer.Open(kPath, videoType, frames[0].bytes, {}, secondsReserved, reason)) << reason;
  int taken = 0;
  for (const Frame& frame : frames) {
    if (writer.Write(frame.bytes, frame.key, 1700000000000000 + taken * 1000000LL / kFps) != Mp4Write::kWritten) break;
    ++taken;
  }
  writer.Close();
  return taken;
}

RecordingFacts Finish() {
  RecordingFacts facts;
  std::string reason;
  EXPECT_TRUE(FinishMp4(kPath, facts, reason)) << reason;
  return facts;
}

struct Film {
  std::vector<Frame> frames;
  std::vector<std::int64_t> times;  // in milliseconds
  std::int64_t lengthMs = 0;
};

AvPtr<AVFormatContext> OpenFile() {
  av_log_set_level(AV_LOG_ERROR);
  AVFormatContext* file = nullptr;
  EXPECT_EQ(avformat_open_input(&file, kPath.c_str(), nullptr, nullptr), 0);
  return AvPtr<AVFormatContext>(file);
}

std::int64_t MsOf(std::int64_t time, const AVStream& stream) { return av_rescale_q(time, stream.time_base, {1, 1000}); }

// What FFmpeg finds in the file; H.264 as the byte stream it was.
Film Play() {
  Film film;
  const AvPtr<AVFormatContext> file = OpenFile();
  const AVStream& stream = *file->streams[0];
  const AvPtr<AVPacket> packet(av_packet_alloc());
  BitstreamFilter filter;
  const bool h264 = stream.codecpar->codec_id == AV_CODEC_ID_H264;
  EXPECT_EQ(filter.Open(h264 ? "h264_mp4toannexb" : "null", *stream.codecpar, stream.time_base), 0);
  while (av_read_frame(file.get(), packet.get()) == 0) {
    film.times.push_back(MsOf(packet->pts, stream));
    EXPECT_EQ(filter.Filter(*packet), 0);
    film.frames.push_back({{packet->data, packet->data + packet->size}, (packet->flags & AV_PKT_FLAG_KEY) != 0});
    av_packet_unref(packet.get());
  }
  film.lengthMs = MsOf(stream.duration, stream);
  return film;
}

// Where FFmpeg begins when asked for that time.
std::int64_t Seek(std::int64_t ms) {
  const AvPtr<AVFormatContext> file = OpenFile();
  const AvPtr<AVPacket> packet(av_packet_alloc());
  const AVStream& stream = *file->streams[0];
  EXPECT_GE(av_seek_frame(file.get(), 0, av_rescale_q(ms, {1, 1000}, stream.time_base), AVSEEK_FLAG_BACKWARD), 0);
  EXPECT_EQ(av_read_frame(file.get(), packet.get()), 0);
  return MsOf(packet->pts, stream);
}

// Units of H.264 may begin with start codes of three bytes or four.
std::vector<Buffer> Units(const Frame& frame) {
  std::vector<Buffer> units;
  NalReader reader(frame.bytes);
  for (Nal nal; reader.Next(nal);) units.emplace_back(nal.bytes.begin(), nal.bytes.end());
  return units;
}

Mp4Layout Layout() {
  const UniqueFd fd(open(kPath.c_str(), O_RDONLY | O_CLOEXEC));
  Mp4Layout layout;
  std::string reason;
  EXPECT_EQ(ReadMp4Layout(fd.Get(), layout, reason), Mp4Reading::kRead) << reason;
  return layout;
}

// The same recording before and after it is finished.
struct TwoStates {
  std::string unfinished, finished;
  std::vector<Mp4Fragment> fragments;
};

TwoStates RecordH264() {
  Mp4Writer writer;
  Record(writer, H264(), VIDEO_TYPE_H264, 20);
  TwoStates states{.unfinished = ReadFile(kPath)};
  Finish();
  states.finished = ReadFile(kPath);
  states.fragments = Layout().fragments;
  EXPECT_EQ(states.fragments.size(), kSeconds);
  return states;
}

TEST(Mp4, PlaysWhatWasWritten) {
  struct {
    std::int32_t videoType;
    int secondsReserved;
    std::int64_t soughtMs;  // with too little place for the index, a reference covers several fragments
  } const cases[] = {{VIDEO_TYPE_H264, 60, 5000}, {VIDEO_TYPE_H264_PLUS, 1, 3000}, {VIDEO_TYPE_MPEG4, 60, 5000}};
  for (const auto& wanted : cases) {
    const std::vector<Frame> frames = Shoot(wanted.videoType, 64);
    Mp4Writer writer;
    ASSERT_EQ(Record(writer, frames, wanted.videoType, wanted.secondsReserved), kFps * kSeconds);
    for (const bool finished : {false, true}) {
      SCOPED_TRACE(testing::Message() << wanted.videoType << (finished ? " finished" : " as it was left"));
      if (finished) {
        const RecordingFacts facts = Finish();
        EXPECT_EQ(facts.frames, kFps * kSeconds);
        EXPECT_EQ(facts.lengthUs, kSeconds * 1000000);
        EXPECT_EQ(facts.bytes, static_cast<std::int64_t>(ReadFile(kPath).size()));
      }
      const Film film = Play();
      ASSERT_EQ(film.frames.size(), frames.size());
      for (std::size_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(film.frames[i].key, frames[i].key);
        EXPECT_EQ(film.times[i], static_cast<std::int64_t>(i) * 1000 / kFps);
        EXPECT_EQ(Units(film.frames[i]), Units(frames[i])) << i;
      }
      EXPECT_EQ(film.lengthMs, kSeconds * 1000);
      EXPECT_EQ(Seek(5100), finished ? wanted.soughtMs : 5000);
    }
  }
}

// Cut anywhere, while it was written and after it was finished, and with the zeros of a power cut behind.
TEST(Mp4, FinishingKeepsEveryWholeFragment) {
  const auto [unfinished, finished, all] = RecordH264();
  for (const std::string& whole : {unfinished, finished}) {
    for (std::size_t cut = 0; cut <= whole.size(); cut += cut < 1200 || cut + 60 > whole.size() ? 1 : 23) {
      std::size_t left = 0;
      while (left < all.size() && all[left].offset + all[left].bytes <= cut) ++left;
      const bool torn = cut >= all[0].offset && left < all.size();
      const std::size_t zeros = torn ? (all[left].offset + all[left].bytes - cut) / 2 : 0;
      WriteFile(kPath, whole.substr(0, cut) + std::string(zeros, '\0'));
      RecordingFacts facts;
      std::string reason;
      ASSERT_EQ(FinishMp4(kPath, facts, reason), left > 0) << cut << " " << reason;
      EXPECT_EQ(facts.worthless, left == 0) << cut;
      const std::string once = ReadFile(kPath);
      EXPECT_EQ(once == finished, left == all.size()) << cut;
      if (left == 0) {
        EXPECT_EQ(once.size(), cut + zeros);
        continue;
      }
      const Mp4Layout layout = Layout();
      EXPECT_TRUE(layout.hasIndex);
      EXPECT_EQ(layout.fragments.size(), left);
      EXPECT_EQ(once.size(), all[left - 1].offset + all[left - 1].bytes);
      Finish();
      EXPECT_EQ(ReadFile(kPath), once) << "finished once more";
      if (cut % 40 != 0) continue;
      const Film film = Play();
      EXPECT_EQ(film.frames.size(), left * kFps);
      EXPECT_EQ(film.lengthMs, static_cast<std::int64_t>(left) * 1000);
    }
  }
}

TEST(Mp4, AFinishingCutShortLeavesAWholeFile) {
  const auto [unfinished, finished, all] = RecordH264();
  bool done = false;
  for (int calls = 0; !done; ++calls) {
    WriteFile(kPath, unfinished + "torn");
    RecordingFacts facts;
    std::string reason;
    g_CallsLeft = calls;
    done = FinishMp4(kPath, facts, reason);
    g_CallsLeft = -1;
    EXPECT_EQ(done, reason.empty());
    EXPECT_FALSE(facts.worthless);
    EXPECT_EQ(Play().frames.size(), H264().size()) << calls;
    Finish();
    EXPECT_EQ(ReadFile(kPath), finished) << calls;
  }
}

TEST(Mp4, AFullDiskKeepsWhatFitted) {
  signal(SIGXFSZ, SIG_IGN);
  const std::vector<Mp4Fragment> all = RecordH264().fragments;
  for (const std::size_t fragments : {3, 7}) {  // the last one is written by Close
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit tight{all[fragments].offset + all[fragments].bytes - 1, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &tight);
    Mp4Writer writer;
    const int taken = Record(writer, H264(), VIDEO_TYPE_H264, 20);
    EXPECT_EQ(writer.Write(H264()[0].bytes, true, 0), Mp4Write::kFailed);
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(taken, fragments == 7 ? 40 : 20);
    EXPECT_FALSE(writer.Close());
    EXPECT_EQ(writer.Error(), EFBIG);
    EXPECT_EQ(Finish().frames, static_cast<int>(fragments) * kFps);
  }
}

TEST(Mp4, OtherParametersBeginAnotherFile) {
  for (const std::int32_t type : {VIDEO_TYPE_H264, VIDEO_TYPE_MPEG4}) {
    std::vector<Frame> frames = Shoot(type, 64);
    const std::vector<Frame> wide = Shoot(type, 80);
    frames.insert(frames.begin() + 10, wide.begin(), wide.end());
    Mp4Writer writer;
    EXPECT_EQ(Record(writer, frames, type, 20), 10);
    EXPECT_EQ(Finish().frames, 10);
    Mp4Writer other;
    EXPECT_EQ(Record(other, wide, type, 20), kFps * kSeconds);
    EXPECT_EQ(Layout().track.width, 80);
    EXPECT_EQ(other.IsOtherExtra(Buffer{1}), type == VIDEO_TYPE_MPEG4);
  }
}

TEST(Mp4, LeavesOtherFilesAlone) {
  const std::string good = RecordH264().finished;
  for (const std::string name : {"ftyp", "moov", "mvhd", "tkhd", "mdhd", "vide", "stsd", "mvex"}) {
    std::string bytes = good;
    bytes.replace(bytes.find(name), 4, "junk");
    WriteFile(kPath, bytes);
    RecordingFacts facts;
    std::string reason;
    EXPECT_FALSE(FinishMp4(kPath, facts, reason)) << name;
    EXPECT_FALSE(facts.worthless) << name;
    EXPECT_EQ(ReadFile(kPath), bytes);
  }
}

TEST(FrameTimes, RiseAtThePaceOfTheFrames) {
  struct {
    const char* what;
    std::vector<std::int64_t> arrivedMs, ms;
  } const cases[] = {
      {"a burst", {5000, 5040, 5040, 5040, 5120}, {0, 40, 41, 42, 120}},
      {"a clock set back", {9000, 9100, 1000, 1100, 1200}, {0, 100, 200, 300, 400}},
      {"a clock set ahead", {0, 50, 3600000, 3600050}, {0, 50, 100, 150}},
      {"a pause", {0, 100, 9000, 9100}, {0, 100, 9000, 9100}},
  };
  for (const auto& wanted : cases) {
    FrameTimes times(90000);
    for (std::size_t i = 0; i < wanted.ms.size(); ++i) {
      EXPECT_EQ(times.Next(wanted.arrivedMs[i] * 1000), wanted.ms[i] * 90) << wanted.what << " " << i;
    }
  }
}

}  // namespace
