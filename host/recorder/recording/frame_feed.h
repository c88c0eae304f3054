// The frames of a camera's ring, one after the other, held where they lie until they are written to disk.
#pragma once

#include <velm/shmstream.h>

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "recorder/frames/annexb.h"

namespace oculora {

struct FeedFrame {
  Bytes data;
  bool key = false;
  int lost = 0;                  // frames right before it that were lost
  std::int64_t timestampUs = 0;  // when it arrived, microseconds since 1970
};

// A thread of its own takes the frames as they come and keeps the camera running meanwhile. It holds as many as the
// disk makes them wait, so that a slow write costs none: a ring of pictures has room for a few only that nobody holds.
// Start, Next and Release belong to one thread.
class FrameFeed {
 public:
  // `holdBytes`: how much of the ring may be held at most; beyond it frames get lost, and live views go on.
  FrameFeed(int camId, int streamNo, std::size_t holdBytes);
  ~FrameFeed();  // waits for the thread, which takes at most a tenth of a second
  FrameFeed(const FrameFeed&) = delete;
  FrameFeed& operator=(const FrameFeed&) = delete;

  // Attaches the ring and begins with the first frame that arrives from now on. False when there is no ring.
  bool Start();
  // The next frame, valid until Release; null when none came within `timeoutMs`.
  const FeedFrame* Next(int timeoutMs);
  void Release();  // lets go of the frame that Next gave
  // The codec extra data as the ring has them now.
  std::vector<std::uint8_t> Extra() const;

 private:
  // A place in the ring's table of readers: each holds one frame.
  struct Place {
    DATA_ENTRY_INFO cursor{};
    FeedFrame frame;
  };
  static constexpr std::size_t kPlaces = 96;

  void Run();
  bool ReadOne();
  Place* FreePlace();

  const int m_CamId;
  const int m_StreamNo;
  const std::size_t m_HoldBytes;
  ShmStreamFifo* m_Ring = nullptr;
  LiveStreamUpdater m_Viewer;
  int m_Seq = kSeqNone;  // of the thread, once it runs

  std::mutex m_Lock;  // for what follows
  std::condition_variable m_Arrived;
  std::array<Place, kPlaces> m_Places;
  std::size_t m_Joined = 0;  // the first so many places take part
  std::vector<Place*> m_Free;
  std::deque<Place*> m_Waiting;  // read, in order
  std::size_t m_HeldBytes = 0;
  bool m_Stop = false;

  Place* m_Current = nullptr;  // given out by Next
  std::thread m_Thread;
};

}  // namespace oculora
