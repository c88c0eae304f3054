// Frame rings: the recorder writes a camera stream's frames into shared memory, request processes read them there.
//
// One ring per (camera, stream, kind). One writer, many readers in other processes. A reader may be slow, stall or die
// at any moment; the writer never waits for it. Attach with LiveStreamFifoAt, detach with shmdt(2).
//
// Sequence numbers are ints above kSeqNone; with kSeqNone as position a read yields the newest frame.
#pragma once

#include <cstdint>

constexpr int kSeqNone = 10001;  // "no position yet"

enum FRAME_FLAG : std::int32_t { FRAME_FLAG_KEY = 2 };

// Codec side information of a frame.
struct MediaES {
  std::int32_t videoType;  // a CAM_VIDEO_TYPE, 0 for audio
  std::int32_t reserved;
};

// One frame, as a reader sees it. The payload lies in the ring until ReadFinish.
struct STREAM_ENTRY {
  std::int32_t seq;
  std::int32_t flags;      // FRAME_FLAG bits
  std::int64_t timestamp;  // microseconds since 1970, when the frame arrived
  const unsigned char* data;
  std::int32_t size;
};

// A reader's cursor. Zero it before StartRead. One per reader and ring; not shared between threads.
struct DATA_ENTRY_INFO {
  std::int32_t slot;          // place in the ring's reader table + 1; 0: none, frames are copied out instead
  std::int32_t copyCapacity;  // bytes of `copy`
  unsigned char* copy;        // private frame buffer when the reader table is full; owned by the cursor
  STREAM_ENTRY entry;         // the entry handed out last
};

// A ring in shared memory; never constructed, only attached.
//
// Reads return null when no suitable frame exists. An entry handed out stays valid and its bytes unchanged until
// ReadFinish, StopRead or the next read with the same cursor. No read blocks or allocates.
class ShmStreamFifo {
 public:
  // Joins the reader table. 0; also 0 when the table is full (frames are then copied, at the cost of one buffer of
  // the cursor's own); -1 when that buffer cannot be had.
  int StartRead(DATA_ENTRY_INFO& info);
  // Leaves the reader table and releases what the cursor holds. Harmless without StartRead.
  void StopRead(DATA_ENTRY_INFO& info);

  // The newest frame, if it is newer than `seq`.
  const STREAM_ENTRY* ReadLatest(int seq, DATA_ENTRY_INFO& info);
  // The newest key frame, if it is newer than `seq`.
  const STREAM_ENTRY* ReadLatestIFrame(int seq, DATA_ENTRY_INFO& info);
  // Copies the newest key frame into `data`. On entry `size` is the capacity; on return the frame's size, 0 when there
  // is none or it does not fit. `seq` is set to the frame's number (unchanged when there is none); a frame is copied
  // whether or not it is newer.
  void ReadLatestIFrame(int& seq, unsigned char* data, int& size, DATA_ENTRY_INFO& info);
  // The frame after `seq`; after a loss the oldest one left that a decoder can start from, else the oldest.
  // With kSeqNone the newest.
  const STREAM_ENTRY* ReadNext(int seq, DATA_ENTRY_INFO& info);
  // Whether `entry` is a frame; gives its bytes, which stay in the ring.
  bool GetValidFrame(const STREAM_ENTRY* entry, const unsigned char*& data, int& size) const;
  // Gives the entry back (null is allowed). This host lets go of the frame whatever `release` says; the flag is for
  // hosts that count a reader's frames.
  void ReadFinish(const STREAM_ENTRY* entry, bool release, DATA_ENTRY_INFO& info);

  // Copies the frame after `cursor` into `buffer` and advances the cursor; with kSeqNone the first frame that arrives
  // after the call. `size` is the capacity on entry, the frame's size on return, 0 when none is ready. `keepOrder`
  // true skips nothing but what was lost; false lets a reader that fell behind by more than half the ring jump to
  // the newest key frame. A frame over the capacity is skipped: `size` 0, the cursor behind it.
  void ReadNext(int& cursor, unsigned char*& buffer, int& size, long long& timestamp, MediaES& media, int& flags,
                bool keepOrder);

  // Copies the codec extra data (for H.264: SPS and PPS), at most `size` bytes as given on entry; `size` is set to the
  // bytes copied, 0 when there is none. Never writes past the size it was given.
  void GetExtra(unsigned char* buffer, int& size) const;

 protected:
  ShmStreamFifo() = default;
};

// Attaches the live video or audio ring of a camera stream. Null when the recorder has made none.
ShmStreamFifo* LiveStreamFifoAt(int camId, int streamNo);
ShmStreamFifo* LiveAdoStreamFifoAt(int camId, int streamNo);

// 1 when the camera is connected: its ring exists and was fed within 30 s; for a camera that starts on demand the
// silence counts from the first stamp of the viewers at hand, so a viewer is not turned away while it connects.
int GetCamConnStatus(int camId);

// Tells the recorder that someone watches a stream. Copying is not needed and not allowed.
class LiveStreamUpdater {
 public:
  LiveStreamUpdater() = default;
  ~LiveStreamUpdater();  // detaches
  LiveStreamUpdater(const LiveStreamUpdater&) = delete;
  LiveStreamUpdater& operator=(const LiveStreamUpdater&) = delete;

  void Init(int camId, int streamNo);
  // Stamps for the first time and wakes the recorder. Does nothing when there is no ring.
  void StartLive();
  // Stamps again; one store into shared memory, cheap enough for every pass of a loop.
  void UpdateStamp();

 private:
  std::int32_t m_CamId = 0;
  std::int32_t m_StreamNo = 0;
  void* m_Ring = nullptr;
};
