// Live stamps, waiting for viewers, and what a ring says about its camera.
#include <sys/shm.h>

#include "capture.h"
#include "ring_fixture.h"
#include "shm/monotonic.h"

namespace {

using oculora::RingStatus;
using oculora::SourceState;

constexpr std::int64_t kSecond = 1000000;
constexpr int kNever = -1;

class Status : public RingTest {
 protected:
  static RingStatus Get() {
    RingStatus status;
    EXPECT_TRUE(oculora::ReadRingStatus(kId, status));
    return status;
  }
  // Sets a time so many seconds ago, or to never.
  static void Date(std::atomic<std::int64_t>& field, int secondsAgo) {
    field.store(secondsAgo == kNever ? 0 : oculora::MonotonicUs() - secondsAgo * kSecond);
  }
};

TEST_F(Status, ConnectionCountsSilenceFromFrameOrFirstViewer) {
  struct Case {
    const char* name;
    bool onDemand;
    int frame, firstStamp, stamp;  // seconds ago
    int connected;
  };
  const Case cases[] = {
      {"fed", false, 29, kNever, kNever, 1},
      {"silent", false, 31, kNever, kNever, 0},
      {"silent, a viewer just came", false, 31, 1, 0, 0},
      {"never fed", false, kNever, kNever, kNever, 0},
      {"idle since ever", true, kNever, kNever, kNever, 1},
      {"idle since a while", true, 1000, 1100, 900, 1},
      {"its viewers left", true, 31, 60, 16, 1},
      {"a viewer just came", true, 1000, 1, 0, 1},
      {"a viewer waits", true, kNever, 29, 0, 1},
      {"a viewer waited in vain", true, kNever, 31, 0, 0},
      {"watched and fed", true, 29, 500, 0, 1},
      {"watched and silent", true, 31, 500, 0, 0},
  };
  for (const Case& c : cases) {
    Make(1 << 16, c.onDemand);
    Date(ring->lastFrameUs, c.frame);
    Date(ring->firstStampUs, c.firstStamp);
    Date(ring->stampUs, c.stamp);
    EXPECT_EQ(GetCamConnStatus(kId.camId), c.connected) << c.name;
  }
  EXPECT_TRUE(oculora::RemoveRing(kId));
  EXPECT_EQ(GetCamConnStatus(kId.camId), 0) << "no ring";
}

TEST_F(Status, AnIdleStreamDoesNotVouchForAWatchedOne) {
  const oculora::RingId other{kId.camId, 2, oculora::RingKind::kVideo};
  ASSERT_TRUE(oculora::RingWriter::Create(other, 1 << 16, true).IsValid());
  Make(1 << 16);
  EXPECT_EQ(GetCamConnStatus(kId.camId), 1);
  Date(ring->firstStampUs, 40);
  Date(ring->stampUs, 0);
  EXPECT_EQ(GetCamConnStatus(kId.camId), 0);
  oculora::RemoveRing(other);
}

TEST_F(Status, ConnectionStatusLeaksNoAttachment) {
  Make(1 << 16);
  for (int i = 0; i < 100; ++i) GetCamConnStatus(kId.camId);
  shmid_ds status{};
  ASSERT_EQ(shmctl(shmget(*oculora::RingKey(kId), 0, 0), IPC_STAT, &status), 0);
  EXPECT_EQ(status.shm_nattch, 2U) << "writer and fifo";
}

TEST_F(Status, StampsTellWhoWatches) {
  Make(1 << 16);
  LiveStreamUpdater viewer;
  viewer.Init(kId.camId, kId.streamNo);
  viewer.UpdateStamp();
  EXPECT_EQ(Get().stampUs, 0) << "not started";
  EXPECT_FALSE(writer.IsWatched(kSecond));
  const std::int64_t before = oculora::MonotonicUs();
  viewer.StartLive();
  EXPECT_GE(Get().firstStampUs, before);
  EXPECT_TRUE(writer.IsWatched(60 * kSecond));

  Date(ring->firstStampUs, 100);
  Date(ring->stampUs, 14);
  EXPECT_FALSE(writer.IsWatched(10 * kSecond));
  viewer.UpdateStamp();
  EXPECT_GE(Get().stampUs, before);
  EXPECT_LT(Get().firstStampUs, before) << "still the same viewers";
  Date(ring->stampUs, 16);
  viewer.UpdateStamp();
  EXPECT_GE(Get().firstStampUs, before) << "the viewers are new";
}

TEST_F(Status, AViewerWakesTheWriterOnce) {
  Make(1 << 16);
  EXPECT_FALSE(writer.WaitForViewer(0));
  Child child([this] {
    usleep(20000);
    LiveStreamUpdater viewer;
    viewer.Init(kId.camId, kId.streamNo);
    viewer.StartLive();
  });
  EXPECT_TRUE(writer.WaitForViewer(60000));
  EXPECT_TRUE(writer.IsWatched(60 * kSecond));
  EXPECT_FALSE(writer.WaitForViewer(10));
}

TEST_F(Status, AViewerOfAReplacedRingIsCutOff) {
  Make(1 << 16);
  LiveStreamUpdater viewer;
  viewer.Init(kId.camId, kId.streamNo);
  viewer.StartLive();
  Make(1 << 17);
  viewer.UpdateStamp();
  EXPECT_EQ(GetCamConnStatus(kId.camId), 0);
  viewer.StartLive();
  viewer.UpdateStamp();
  EXPECT_EQ(GetCamConnStatus(kId.camId), 1);
  EXPECT_TRUE(writer.IsWatched(60 * kSecond)) << "stamps the new ring";
}

TEST_F(Status, SourceStateAndCountersAreVisible) {
  Make(1 << 16);
  EXPECT_EQ(Get().state, SourceState::kIdle);
  EXPECT_EQ(Get().newestSeq, 0);
  const std::string longReason = std::string(119, 'x') + "\xC3\xA4";
  struct Case {
    SourceState state;
    std::string reason, shown;
  };
  for (const Case& c :
       {Case{SourceState::kFailed, "no route", "no route"}, Case{SourceState::kConnecting, "x", ""},
        Case{SourceState::kFailed, longReason, std::string(119, 'x')}, Case{SourceState::kStreaming, "", ""}}) {
    writer.SetState(c.state, c.reason);
    EXPECT_EQ(Get().state, c.state);
    EXPECT_EQ(Get().reason, c.shown);
  }
  Reader reader(fifo.get());
  const int seq = Write(500);
  const RingStatus status = Get();
  EXPECT_EQ(status.newestSeq, seq);
  EXPECT_EQ(status.framesWritten, 1U);
  EXPECT_EQ(status.readers, 1);
  EXPECT_NE(status.lastFrameUs, 0);
}

}  // namespace
