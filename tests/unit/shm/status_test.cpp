// Live stamps, waiting for viewers, and what a ring says about its camera.
#include <unistd.h>

#include "capture.h"
#include "ring_fixture.h"
#include "shm/monotonic.h"

namespace {

constexpr std::int64_t kSecond = 1000000;
constexpr int kNever = -1;

class Status : public RingTest {
 protected:
  void SetUp() override { viewer.Init(kId.camId, kId.streamNo); }
  static int IsConnected() { return GetCamConnStatus(kId.camId); }
  // Sets a time so many seconds ago, or to never.
  static void Date(std::atomic<std::int64_t>& field, int secondsAgo) {
    field.store(secondsAgo == kNever ? 0 : oculora::MonotonicUs() - secondsAgo * kSecond);
  }

  LiveStreamUpdater viewer;
};

TEST_F(Status, ConnectionCountsSilenceFromFrameOrFirstViewer) {
  const struct {
    const char* name;
    bool onDemand;
    int frame, firstStamp, stamp;  // seconds ago
    int connected;
  } cases[] = {
      {"fed", false, 28, kNever, kNever, 1},           {"silent", false, 31, kNever, kNever, 0},
      {"never fed", false, kNever, kNever, kNever, 0}, {"idle since ever", true, kNever, kNever, kNever, 1},
      {"its viewers left", true, 31, 60, 16, 1},       {"a viewer just came", true, 1000, 1, 0, 1},
      {"a viewer waits", true, kNever, 28, 0, 1},      {"a viewer waited in vain", true, kNever, 31, 0, 0},
      {"watched and silent", true, 31, 500, 0, 0},
  };
  for (const auto& c : cases) {
    Make(1 << 16, c.onDemand);
    Date(ring->lastFrameUs, c.frame);
    Date(ring->firstStampUs, c.firstStamp);
    Date(ring->stampUs, c.stamp);
    EXPECT_EQ(IsConnected(), c.connected) << c.name;
  }
  shmid_ds status{};
  ASSERT_EQ(shmctl(shmget(*oculora::RingKey(kId), 0, 0), IPC_STAT, &status), 0);
  EXPECT_EQ(status.shm_nattch, 2U) << "attached by others than writer and fifo";
  const oculora::RingId idle{kId.camId, 2, oculora::RingKind::kVideo};
  ASSERT_TRUE(oculora::RingWriter::Create(idle, 1 << 16, true).IsValid());
  EXPECT_EQ(IsConnected(), 0) << "an idle stream does not vouch for a watched one";
  oculora::RemoveRing(kId);
  EXPECT_EQ(IsConnected(), 1);
  oculora::RemoveRing(idle);
  EXPECT_EQ(IsConnected(), 0) << "no ring";
}

TEST_F(Status, StampsTellWhoWatches) {
  Make(1 << 16);
  viewer.UpdateStamp();
  EXPECT_EQ(ring->stampUs, 0) << "not started";
  EXPECT_FALSE(writer.IsWatched(kSecond));
  const std::int64_t before = oculora::MonotonicUs();
  viewer.StartLive();
  EXPECT_GE(ring->firstStampUs, before);
  EXPECT_TRUE(writer.IsWatched(60 * kSecond));

  Date(ring->firstStampUs, 100);
  Date(ring->stampUs, 12);
  EXPECT_FALSE(writer.IsWatched(10 * kSecond));
  viewer.UpdateStamp();
  EXPECT_GE(ring->stampUs, before);
  EXPECT_LT(ring->firstStampUs, before) << "still the same viewers";
  Date(ring->stampUs, 16);
  viewer.UpdateStamp();
  EXPECT_GE(ring->firstStampUs, before) << "the viewers are new";
}

TEST_F(Status, AViewerWakesTheWriterOnce) {
  Make(1 << 16);
  EXPECT_FALSE(writer.WaitForViewer(0));
  Child child([this] {
    usleep(20000);
    viewer.StartLive();
  });
  const std::int64_t before = oculora::MonotonicUs();
  EXPECT_TRUE(writer.WaitForViewer(10000));
  EXPECT_LT(oculora::MonotonicUs() - before, 9 * kSecond) << "found at the end of the wait";
  EXPECT_FALSE(writer.WaitForViewer(10));
}

TEST_F(Status, AViewerOfAReplacedRingIsCutOff) {
  Make(1 << 16);
  viewer.StartLive();
  Make(1 << 17);
  viewer.UpdateStamp();
  EXPECT_EQ(IsConnected(), 0);
  viewer.StartLive();
  EXPECT_EQ(IsConnected(), 1);
  EXPECT_TRUE(writer.IsWatched(60 * kSecond)) << "stamps the new ring";
}

}  // namespace
