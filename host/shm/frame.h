// Looking up and copying single frames of a ring, validated by their numbers.
#pragma once

#include <cstddef>
#include <cstdint>

#include "shm/ring_layout.h"

namespace oculora {

// A frame as its entry described it when it was loaded.
struct Frame {
  std::uint64_t number = 0;
  std::uint64_t offset = 0;  // in the payload area
  std::int64_t timestampUs = 0;
  std::uint32_t size = 0;
  std::int32_t flags = 0;
  std::int32_t videoType = 0;
};

// How often a read starts again when the writer overtook it. Each time a whole frame was written in between, so a
// reader that needs more is hopelessly late and better waits for the next frame.
constexpr int kReadAttempts = 16;

// The number of the newest frame, or key frame; 0 when there is none or the ring is retired.
std::uint64_t NewestOf(const Ring& ring);
std::uint64_t NewestKeyOf(const Ring& ring);

// The frame a reader at position `seq` reads next: the one after it; after a loss the oldest left that a decoder can
// start from, else the oldest; without a position the newest. 0 when there is none yet.
std::uint64_t NextAfter(const Ring& ring, int seq);

// Reads a frame's entry. False when the frame is gone.
bool LoadFrame(const Ring& ring, std::uint64_t number, Frame& frame);

// Whether the frame is still in the ring. Whoever pinned it before asking keeps it.
bool IsStillThere(const Ring& ring, std::uint64_t number);

// Copies a loaded frame into `buffer`, which is large enough. False when the writer got there first; `buffer` then
// holds rubbish.
bool CopyFrame(const Ring& ring, const Frame& frame, unsigned char* buffer);

}  // namespace oculora
