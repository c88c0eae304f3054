// Where takes end, what the names of files say, and how long a disk may stall.
#include <gtest/gtest.h>
#include <unistd.h>
#include <velm/camera.h>

#include <algorithm>

#include "recorder/recording/frame_feed.h"
#include "recorder/recording/jpeg_size.h"
#include "recorder/recording/stray_files.h"
#include "recorder/recording/take.h"
#include "shm/ring_writer.h"
#include "shm/segment.h"

using namespace oculora;

namespace {

constexpr std::int64_t kSecond = 1000000;
constexpr std::int64_t kStart = 1700000000 * kSecond;

// Notes what it is given, one letter a frame: K a key frame, d another one.
struct FakeWriter : FileWriter {
  explicit FakeWriter(std::string& to) : written(to) {}
  bool CanBeginWith(const FeedFrame&) const override { return true; }
  bool Open(const std::string&, const FeedFrame&, Bytes, std::string&) override { return true; }
  FileWrite Write(const FeedFrame& frame, Bytes) override {
    written += frame.key ? 'K' : 'd';
    return FileWrite::kWritten;
  }
  bool Sync() override { return true; }
  void Close() override {}
  int Error() const override { return 0; }
  std::string& written;
};

struct Case {
  const char* name;
  EventCause cause;
  std::int64_t wantedSeconds;
  // A frame each: K key, d not; L the same after a loss, key, l not. A number before it: the seconds since the one
  // before, else 1; "-" is backwards.
  const char* frames;
  const char* written;
  Take::Offered last;
};

class Takes : public testing::TestWithParam<Case> {};

}  // namespace

TEST_P(Takes, EndWhereTheyShould) {
  const Case& test = GetParam();
  std::string written;
  EventRecord event;
  event.cause = test.cause;
  event.startUs = kStart;
  event.wantedUs = test.wantedSeconds * kSecond;
  Take take(event, std::make_unique<FakeWriter>(written));
  std::int64_t nowUs = kStart, step = 0;
  int sign = 1;
  Take::Offered offered = Take::Offered::kGoesOn;
  take.Write({{}, true, false, kStart}, {});
  for (const char* at = test.frames; *at != 0; ++at) {
    if (*at == '-') sign = -1;
    if (*at >= '0' && *at <= '9') step = step * 10 + *at - '0';
    if (*at == '-' || (*at >= '0' && *at <= '9')) continue;
    ASSERT_EQ(offered, Take::Offered::kGoesOn) << at;
    nowUs += sign * (step == 0 ? 1 : step) * kSecond;
    offered = take.Offer({{}, *at == 'K' || *at == 'L', *at == 'L' || *at == 'l', nowUs}, {});
    step = 0;
    sign = 1;
  }
  EXPECT_EQ(offered, test.last);
  EXPECT_EQ(written, test.written);
}

constexpr auto kGoesOn = Take::Offered::kGoesOn;
constexpr auto kLongEnough = Take::Offered::kLongEnough;
constexpr auto kEnds = Take::Offered::kEnds;
INSTANTIATE_TEST_SUITE_P(
    All, Takes,
    testing::Values(Case{"KeyFrameAfterItsLength", EventCause::kContinuous, 3, "dddddK", "Kddddd", kLongEnough},
                    Case{"ExactLength", EventCause::kContinuous, 3, "KKK", "KKK", kLongEnough},
                    Case{"AskedForEndsAnywhere", EventCause::kRequest, 3, "ddd", "Kdd", kLongEnough},
                    Case{"NoLimit", EventCause::kRequest, 0, "9K9K9K9K", "KKKKK", kGoesOn},
                    Case{"Silence", EventCause::kContinuous, 60, "d11K", "Kd", kEnds},
                    Case{"PauseBelowSilence", EventCause::kContinuous, 60, "d10d", "Kdd", kGoesOn},
                    Case{"ClockSetBack", EventCause::kContinuous, 60, "d-5d", "Kd", kEnds},
                    Case{"StampsOutOfOrder", EventCause::kContinuous, 60, "dd-1d", "Kddd", kGoesOn},
                    Case{"LossWaitsForKey", EventCause::kContinuous, 60, "dlddKd", "KdKd", kGoesOn},
                    Case{"LossUpToKey", EventCause::kContinuous, 60, "dLd", "KdKd", kGoesOn}),
    [](const auto& test) { return test.param.name; });

TEST(StrayFiles, NamesSayWhatTheyAre) {
  using Kind = StrayFile::Kind;
  const struct {
    const char* path;
    Kind kind;
    int id;
  } cases[] = {
      {"3/2023-11-14/22-13-20-57.mp4", Kind::kRecording, 57}, {"3/2023-11-14/22-13-20-57.avi", Kind::kRecording, 57},
      {"3/2023-11-14/22-13-20-57.jpg", Kind::kRemains, 57},   {"3/2023-11-14/22-13-20-57.jpg.part", Kind::kRemains, 57},
      {"3/2023-11-14/22-13-20-57.mkv", Kind::kForeign, 57},   {"3/2023-11-14/notes.txt", Kind::kForeign, 0},
      {"3/2023-11-14/22-13-20-.avi", Kind::kForeign, 0},
  };
  for (const auto& test : cases) {
    const StrayFile file = ReadStrayName(test.path);
    EXPECT_EQ(file.kind, test.kind) << test.path;
    EXPECT_EQ(file.eventId, test.id) << test.path;
    EXPECT_EQ(file.startUs, test.id == 0 ? 0 : kStart) << test.path;
  }
}

TEST(JpegSize, IsReadFromTheHeaderWhereverItEnds) {
  const std::vector<std::uint8_t> jpeg = {0xff, 0xd8, 0xff, 0xe0, 0, 4,    0xff, 0xc0, 0xff, 0xff, 0xc2, 0,
                                          17,   8,    1,    0x40, 2, 0x80, 3,    1,    0x22, 0,    0xff, 0xd9};
  EXPECT_EQ(ReadJpegSize(jpeg), (PictureSize{640, 320}));
  for (std::size_t size = 0; size < 18; ++size) EXPECT_FALSE(ReadJpegSize(Bytes(jpeg).first(size))) << size;
}

// A ring of pictures has room for four that nobody holds: whoever reads only between two writes to disk loses the rest.
TEST(FrameFeed, HoldsFramesWhileTheDiskStallsAndThenLetsLiveViewsGoOn) {
  const RingId id{.camId = 77};
  const std::string picture(100000, 'x');
  RingWriter ring = RingWriter::Create(id, 24 << 20, true);
  ring.Write(picture.data(), picture.size(), FRAME_FLAG_KEY, -1, VIDEO_TYPE_MJPEG);  // of before
  {
    FrameFeed feed(id.camId, 0, 4'000'000);
    ASSERT_TRUE(feed.Start());
    const RingMapping readers(static_cast<Ring*>(LiveStreamFifoAt(id.camId, 0)));
    const auto held = [&] {
      return std::ranges::count_if(readers->readers, [](const ReaderSlot& slot) { return slot.pin != 0; });
    };
    const auto write = [&](int from, int to) {
      for (int i = from; i < to; ++i) {
        const auto goal = std::min<std::ptrdiff_t>(held() + 1, 40);  // as many as it may hold
        EXPECT_GT(ring.Write(picture.data(), picture.size(), FRAME_FLAG_KEY, i, VIDEO_TYPE_MJPEG), 0);
        for (int waits = 0; held() < goal && waits < 20000; ++waits) usleep(1000);
      }
    };
    write(0, 30);
    for (int i = 0; i < 30; ++i, feed.Release()) {
      const FeedFrame* frame = feed.Next(20000);
      ASSERT_NE(frame, nullptr) << i;
      EXPECT_EQ(frame->timestampUs, i);
      EXPECT_EQ(frame->lost, 0) << i;
    }
    write(30, 100);  // more than it may hold: the ring takes them all the same
    int losses = 0, lost = 0, frames = 0;
    for (const FeedFrame* frame = nullptr; frames + lost < 70; feed.Release()) {
      ASSERT_NE(frame = feed.Next(20000), nullptr) << frames << " and " << lost;
      losses += frame->lost > 0 ? 1 : 0;
      lost += frame->lost;
      ++frames;
    }
    EXPECT_EQ(losses, 1);
    EXPECT_EQ(frames + lost, 70);
    EXPECT_GE(frames, 40);
    EXPECT_LT(frames, 60);
  }
  RemoveRing(id);
}
