// Where takes end, how large a picture is, and how long a disk may stall.
#include <gtest/gtest.h>
#include <unistd.h>
#include <velm/camera.h>

#include <algorithm>
#include <cctype>
#include <sstream>

#include "recorder/recording/frame_feed.h"
#include "recorder/recording/jpeg_size.h"
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

constexpr auto kGoesOn = Take::Offered::kGoesOn;
constexpr auto kLongEnough = Take::Offered::kLongEnough;
constexpr auto kEnds = Take::Offered::kEnds;

TEST(Takes, EndWhereTheyShould) {
  const struct {
    const char* name;
    EventCause cause;
    std::int64_t wantedSeconds;
    // A frame each: K key, d not; L the same after a loss, key, l not. A number before it: the seconds since the one
    // before, else 1; "-" is backwards.
    const char* frames;
    const char* written;
    Take::Offered last;
  } cases[] = {{"key frame after its length", EventCause::kContinuous, 3, "dddddK", "Kddddd", kLongEnough},
               {"exact length", EventCause::kContinuous, 3, "KKK", "KKK", kLongEnough},
               {"asked for, ends anywhere", EventCause::kRequest, 3, "ddd", "Kdd", kLongEnough},
               {"no limit", EventCause::kRequest, 0, "9K9K9K9K", "KKKKK", kGoesOn},
               {"silence", EventCause::kContinuous, 60, "d11K", "Kd", kEnds},
               {"pause below silence", EventCause::kContinuous, 60, "d10d", "Kdd", kGoesOn},
               {"clock set back", EventCause::kContinuous, 60, "d-5d", "Kd", kEnds},
               {"stamps out of order", EventCause::kContinuous, 60, "dd-1d", "Kddd", kGoesOn},
               {"loss waits for key", EventCause::kContinuous, 60, "dlddKd", "KdKd", kGoesOn},
               {"loss up to key", EventCause::kContinuous, 60, "dLd", "KdKd", kGoesOn}};
  for (const auto& test : cases) {
    std::string written;
    EventRecord event;
    event.cause = test.cause;
    event.startUs = kStart;
    event.wantedUs = test.wantedSeconds * kSecond;
    Take take(event, std::make_unique<FakeWriter>(written));
    take.Write({{}, true, false, kStart}, {});
    std::int64_t nowUs = kStart;
    Take::Offered offered = kGoesOn;
    std::istringstream frames(test.frames);
    while (frames.peek() != EOF) {
      ASSERT_EQ(offered, kGoesOn) << test.name;
      std::int64_t step = 1;
      if (!std::isalpha(frames.peek())) frames >> step;
      const char frame = static_cast<char>(frames.get());
      nowUs += step * kSecond;
      offered = take.Offer({{}, frame == 'K' || frame == 'L', frame == 'L' || frame == 'l', nowUs}, {});
    }
    EXPECT_EQ(offered, test.last) << test.name;
    EXPECT_EQ(written, test.written) << test.name;
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
      EXPECT_TRUE(frame->timestampUs == i && frame->lost == 0) << i;
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

}  // namespace
