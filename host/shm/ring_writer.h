// The recorder's side of a frame ring: making it, writing frames, telling readers how the camera is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace oculora {

enum class RingKind : std::uint8_t { kVideo = 0, kAudio = 1 };

// Names one ring. Camera ids up to 2^18 - 1, streams up to 15.
struct RingId {
  std::int32_t camId = 0;
  std::int32_t streamNo = 0;
  RingKind kind = RingKind::kVideo;
};

// How a camera's source is doing, for the page and the admin command.
enum class SourceState : std::int32_t {
  kIdle = 0,        // nobody watches
  kConnecting = 1,  // being opened
  kStreaming = 2,   // frames arrive
  kFailed = 3,      // last attempt failed; the reason says why; another attempt follows
};

constexpr std::size_t kMaxFrameBytes = 4194304;  // readers' buffers hold so much
constexpr std::size_t kMaxExtraBytes = 1024;
constexpr std::size_t kMaxReasonBytes = 120;

// What anyone may ask of a ring without joining it. All times are CLOCK_MONOTONIC microseconds, 0: never.
struct RingStatus {
  SourceState state = SourceState::kIdle;
  std::string reason;             // plain English, of the last failure, until frames arrive again
  std::int64_t lastFrameUs = 0;   // when the newest frame was written
  std::int64_t stampUs = 0;       // newest stamp of a viewer
  std::int64_t firstStampUs = 0;  // first stamp of the viewers at hand
  std::int32_t newestSeq = 0;
  std::uint64_t framesWritten = 0;
  std::uint64_t framesDropped = 0;  // no gap between pinned frames
  int readers = 0;
};

// Reads the status of a ring; false when there is none.
bool ReadRingStatus(const RingId& id, RingStatus& status);

// Removes a ring; attached readers see it retired and find nothing new in it. False when there was none.
bool RemoveRing(const RingId& id);

// An attached ring, writing side. Movable handle; the destructor detaches and leaves the ring in place. One writer at a
// time per ring (enforced by the recorder's supervision). No operation blocks on readers, none allocates per frame.
class RingWriter {
 public:
  RingWriter() = default;
  ~RingWriter();
  RingWriter(RingWriter&& other) noexcept;
  RingWriter& operator=(RingWriter&& other) noexcept;

  // Makes the ring with `dataBytes` for payloads, or attaches an existing one of the same layout and size (sequence
  // numbers go on; a ring of another layout or size is retired and replaced). `onDemand` says that the camera runs
  // only while watched. Returns an invalid handle and sets errno on failure.
  static RingWriter Create(const RingId& id, std::size_t dataBytes, bool onDemand);
  // Attaches a ring made by another process; an invalid handle when there is none.
  static RingWriter Attach(const RingId& id);

  bool IsValid() const { return m_Ring != nullptr; }

  // Writes one frame. `flags`: FRAME_FLAG bits, `timestampUs`: microseconds since 1970. Returns the sequence number;
  // 0 when it was dropped because readers pin every gap; -1 when the size is 0 or over kMaxFrameBytes.
  int Write(const void* data, std::size_t size, std::int32_t flags, std::int64_t timestampUs, std::int32_t videoType);

  // Sets the codec extra data; false when it is over kMaxExtraBytes. Readers never see a half-written one.
  bool SetExtra(const void* data, std::size_t size);

  void SetState(SourceState state, const std::string& reason);

  // Frees the reader slots of dead processes; returns how many. Called by Write about once a second anyway.
  int ReapReaders();

  // Whether a viewer stamped within `withinUs`.
  bool IsWatched(std::int64_t withinUs) const;
  // Sleeps until a viewer comes (StartLive) or `timeoutMs` passes; true when one came since the last call.
  bool WaitForViewer(int timeoutMs);

 private:
  struct Ring* m_Ring = nullptr;
};

}  // namespace oculora
