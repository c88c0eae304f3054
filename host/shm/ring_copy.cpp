// Reading frames by copying them out, without a place in the reader table; and the codec extra data.
#include <velm/shmstream.h>

#include <optional>

#include "shm/frame.h"
#include "shm/frame_signal.h"
#include "shm/ring_layout.h"
#include "shm/sequence.h"

namespace oculora {
namespace {

// Whether a reader at `position` is in danger of being overtaken: more than half of the payload area, or of the index,
// was written since.
bool IsFarBehind(const Ring& ring, std::uint64_t position, std::uint64_t newest) {
  if (newest - position > kRingEntries / 2) return true;
  const std::uint64_t written = ring.writePosition.load(std::memory_order_relaxed);
  const std::uint64_t next = EntryOf(ring, position + 1).position.load(std::memory_order_relaxed);
  return written - next > ring.dataBytes / 2;
}

// The frame that a copying reader at `seq` reads next, 0 when there is none.
std::uint64_t NextToCopy(const Ring& ring, int seq, bool keepOrder) {
  const std::uint64_t newest = NewestOf(ring);
  const std::optional<std::uint64_t> position = NumberOf(seq, newest);
  if (!keepOrder && position && *position < newest && IsFarBehind(ring, *position, newest)) {
    const std::uint64_t key = NewestKeyOf(ring);
    if (key > *position) return key;
  }
  return NextAfter(ring, seq);
}

}  // namespace
}  // namespace oculora

using oculora::Frame;
using oculora::Ring;

void ShmStreamFifo::ReadLatestIFrame(int& seq, unsigned char* data, int& size, DATA_ENTRY_INFO& /*info*/) {
  const Ring& ring = static_cast<const Ring&>(*this);
  const int capacity = size;
  size = 0;
  for (int attempt = 0; attempt < oculora::kReadAttempts; ++attempt) {
    const std::uint64_t number = oculora::NewestKeyOf(ring);
    if (number == 0) return;
    Frame frame;
    if (!oculora::LoadFrame(ring, number, frame)) continue;
    const bool fits = data != nullptr && capacity > 0 && frame.size <= static_cast<std::uint32_t>(capacity);
    if (fits && !oculora::CopyFrame(ring, frame, data)) continue;
    seq = oculora::SeqOf(number);
    if (fits) size = static_cast<int>(frame.size);
    return;
  }
}

void ShmStreamFifo::ReadNext(int& cursor, unsigned char*& buffer, int& size, long long& timestamp, MediaES& media,
                             int& flags, bool keepOrder) {
  const Ring& ring = static_cast<const Ring&>(*this);
  const int capacity = size;
  size = 0;
  oculora::NoteCopyingReader();
  if (const std::uint64_t newest = oculora::NewestOf(ring); !oculora::NumberOf(cursor, newest)) {
    cursor = oculora::SeqOf(newest);
    return;
  }
  for (int attempt = 0; attempt < oculora::kReadAttempts; ++attempt) {
    const std::uint64_t number = oculora::NextToCopy(ring, cursor, keepOrder);
    if (number == 0) return;
    Frame frame;
    if (!oculora::LoadFrame(ring, number, frame)) continue;
    const bool fits = buffer != nullptr && capacity > 0 && frame.size <= static_cast<std::uint32_t>(capacity);
    if (fits && !oculora::CopyFrame(ring, frame, buffer)) continue;
    cursor = oculora::SeqOf(number);  // also past a frame that does not fit: it never will
    if (!fits) return;
    size = static_cast<int>(frame.size);
    timestamp = frame.timestampUs;
    media = {frame.videoType, 0};
    flags = frame.flags;
    return;
  }
}

void ShmStreamFifo::GetExtra(unsigned char* buffer, int& size) const {
  const Ring& ring = static_cast<const Ring&>(*this);
  const int capacity = size;
  size = 0;
  if (buffer == nullptr || capacity <= 0) return;
  size = static_cast<int>(ring.extra.Load(buffer, static_cast<std::size_t>(capacity)));
}
