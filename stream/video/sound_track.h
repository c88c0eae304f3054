// The sound of a live view: what came since the last picture goes out behind the next one.
#pragma once

#include <cstdint>

#include "attached_ring.h"

// One reader of an audio ring. Blocks are timed by their lengths from the picture at which the track began, so that
// they follow each other without gaps; Resync() begins anew with the next picture.
class SoundTrack {
 public:
  explicit SoundTrack(ShmStreamFifo* ring) : m_Ring(ring) {}

  explicit operator bool() const { return static_cast<bool>(m_Ring); }
  void Start() { m_Ring->StartRead(m_Ring.info); }
  void Resync() { m_Resync = true; }

  // Appends one block behind the picture of `size` bytes in g_Picture, with what fits of the sound that waits; the rest
  // stays for the next picture. Returns the size of both. Adds nothing when there is no sound or the view is to stop.
  int AppendTo(int size, std::int64_t pictureTimestampUs);

 private:
  int CopySamples(int at, int room);

  AttachedRing m_Ring;
  int m_Seq = kSeqNone;
  bool m_Resync = true;
  std::int64_t m_TimestampUs = 0;  // of the newest block
  std::uint32_t m_DurationUs = 0;  // of the newest block
};
