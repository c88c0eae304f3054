// Looking up and copying single frames of a ring. See frame.h.
#include "shm/frame.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <optional>

#include "shm/sequence.h"

namespace oculora {
namespace {

std::uint64_t Unretired(const Ring& ring, const std::atomic<std::uint64_t>& number) {
  return ring.retired.load(std::memory_order_relaxed) != 0 ? 0 : number.load(std::memory_order_acquire);
}

// The oldest frame that a decoder can start from, else the oldest of all.
std::uint64_t OldestStart(const Ring& ring, std::uint64_t oldest, std::uint64_t newest) {
  const std::uint64_t end = std::min(newest + 1, oldest + kRingEntries);
  for (std::uint64_t number = oldest; number < end; ++number) {
    if ((EntryOf(ring, number).flags.load(std::memory_order_relaxed) & FRAME_FLAG_KEY) != 0) return number;
  }
  return oldest;
}

}  // namespace

std::uint64_t NewestOf(const Ring& ring) { return Unretired(ring, ring.newest); }

std::uint64_t NewestKeyOf(const Ring& ring) { return Unretired(ring, ring.newestKey); }

std::uint64_t NextAfter(const Ring& ring, int seq) {
  const std::uint64_t newest = NewestOf(ring);
  const std::optional<std::uint64_t> position = NumberOf(seq, newest);
  if (!position) return newest;
  if (*position >= newest) return 0;
  const std::uint64_t oldest = ring.oldest.load(std::memory_order_acquire);
  if (*position + 1 >= oldest) return *position + 1;
  return oldest > newest ? 0 : OldestStart(ring, oldest, newest);
}

bool LoadFrame(const Ring& ring, std::uint64_t number, Frame& frame) {
  const RingEntry& entry = EntryOf(ring, number);
  if (number == 0 || entry.number.load(std::memory_order_acquire) != number) return false;
  frame.number = number;
  frame.offset = entry.position.load(std::memory_order_relaxed) % ring.dataBytes;
  frame.timestampUs = entry.timestampUs.load(std::memory_order_relaxed);
  frame.size = entry.size.load(std::memory_order_relaxed);
  frame.flags = entry.flags.load(std::memory_order_relaxed);
  frame.videoType = entry.videoType.load(std::memory_order_relaxed);
  // The second half keeps a damaged ring from leading readers out of the segment.
  return IsStillThere(ring, number) && frame.size <= kMaxFrameBytes && frame.offset + frame.size <= ring.dataBytes;
}

bool IsStillThere(const Ring& ring, std::uint64_t number) {
  std::atomic_thread_fence(std::memory_order_acquire);
  return EntryOf(ring, number).number.load(std::memory_order_relaxed) == number;
}

bool CopyFrame(const Ring& ring, const Frame& frame, unsigned char* buffer) {
  // The writer may overwrite these bytes while they are copied. To the language that is a data race; here the other
  // side is another process, so the compiler sees one side only, memcpy reads raw bytes and nothing interprets them
  // before the number has been checked again. The writer voids the number, with a fence behind it, before it writes the
  // first byte, and the fence in the check keeps the copy in front of it.
  std::memcpy(buffer, DataOf(ring) + frame.offset, frame.size);
  return IsStillThere(ring, frame.number);
}

}  // namespace oculora
