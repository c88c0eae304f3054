// Writing frames into a ring. Never waits: frames that readers hold are jumped over.
#include "shm/ring_writer.h"

#include <velm/camera.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <optional>
#include <utility>

#include "shm/frame_signal.h"
#include "shm/monotonic.h"
#include "shm/pins.h"
#include "shm/reader_table.h"
#include "shm/ring_layout.h"
#include "shm/sequence.h"

namespace oculora {
namespace {

constexpr std::int64_t kReapEveryUs = 1000000;
// Readers that pin a frame of a gap just as it is found make the writer look again; this ends a run of bad luck.
constexpr int kGapAttempts = 64;
// Readers of pictures want the newest one only. A ring of pictures therefore turns round early, so that its bytes stay
// in the caches and in few pages of each reader; the rest of the area is for times when readers hold pictures.
constexpr std::uint64_t kPicturesKept = 4;
constexpr std::uint64_t kPictureWindowBytes = 524288;

// The units from the start of the area after which the writer turns round.
std::uint64_t TurningPoint(const Ring& ring, std::uint64_t units, std::int32_t videoType) {
  const std::uint64_t area = ring.dataBytes / kRingUnit;
  if (videoType != VIDEO_TYPE_MJPEG) return area;
  return std::min(area, std::max(kPicturesKept * units, kPictureWindowBytes / kRingUnit));
}

// Voids the oldest frames, up to those that a payload ending at `endPosition` leaves untouched. They leave in the order
// they came, also those that readers hold: a pin keeps the bytes, not the entry.
void VoidFramesBefore(Ring& ring, std::uint64_t endPosition, std::uint64_t nextNumber) {
  std::uint64_t oldest = ring.oldest.load(std::memory_order_relaxed);
  for (; oldest < nextNumber; ++oldest) {
    RingEntry& entry = EntryOf(ring, oldest);
    const bool overwritten = entry.position.load(std::memory_order_relaxed) + ring.dataBytes < endPosition;
    if (!overwritten && nextNumber - oldest < kRingEntries) break;
    entry.number.store(0, std::memory_order_relaxed);
  }
  ring.oldest.store(oldest, std::memory_order_release);
}

// Finds room for `units` units, voids what lies there, and returns its position in bytes; empty when pins leave no gap.
std::optional<std::uint64_t> ReserveGap(Ring& ring, std::uint64_t units, std::uint64_t nextNumber,
                                        std::uint64_t turningPoint) {
  const std::uint64_t areaUnits = ring.dataBytes / kRingUnit;
  std::uint64_t from = ring.writePosition.load(std::memory_order_relaxed) / kRingUnit;
  if (from % areaUnits + units > turningPoint) from += areaUnits - from % areaUnits;
  std::uint64_t voidedUntil = from + units;
  bool reaped = false;
  for (int attempt = 0; attempt < kGapAttempts; ++attempt) {
    VoidFramesBefore(ring, voidedUntil * kRingUnit, nextNumber);
    // Pairs with the readers' fence between storing a pin and checking that the frame is still there.
    std::atomic_thread_fence(std::memory_order_seq_cst);
    const std::optional<std::uint64_t> gap = PinSet(ring).FindGap(from, units);
    if (gap && *gap + units <= voidedUntil) return *gap * kRingUnit;
    if (gap) {
      voidedUntil = *gap + units;
    } else if (!std::exchange(reaped, true) && ReapSlots(ring, ReapDepth::kThorough) > 0) {
      continue;
    } else {
      break;
    }
  }
  return std::nullopt;
}

void ReapNowAndThen(Ring& ring, std::int64_t nowUs) {
  if (nowUs - ring.lastReapUs.load(std::memory_order_relaxed) < kReapEveryUs) return;
  ring.lastReapUs.store(nowUs, std::memory_order_relaxed);
  ReapSlots(ring, ReapDepth::kQuick);
}

void Count(std::atomic<std::uint64_t>& counter) {
  counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

}  // namespace

int RingWriter::Write(const void* data, std::size_t size, std::int32_t flags, std::int64_t timestampUs,
                      std::int32_t videoType) {
  if (m_Ring == nullptr || data == nullptr || size == 0 || size > kMaxFrameBytes || size > m_Ring->dataBytes) return -1;
  Ring& ring = *m_Ring;
  const std::int64_t now = MonotonicUs();
  ReapNowAndThen(ring, now);

  const std::uint64_t number = ring.newest.load(std::memory_order_relaxed) + 1;
  const std::uint64_t units = UnitsOf(size);
  // Voided like the frames in the gap, before the fence in there: a writer that died may have left this very number.
  RingEntry& entry = EntryOf(ring, number);
  entry.number.store(0, std::memory_order_relaxed);
  const std::optional<std::uint64_t> position = ReserveGap(ring, units, number, TurningPoint(ring, units, videoType));
  if (!position) {
    Count(ring.framesDropped);
    return 0;
  }
  std::memcpy(DataOf(ring) + *position % ring.dataBytes, data, size);
  entry.position.store(*position, std::memory_order_relaxed);
  entry.timestampUs.store(timestampUs, std::memory_order_relaxed);
  entry.size.store(static_cast<std::uint32_t>(size), std::memory_order_relaxed);
  entry.flags.store(flags, std::memory_order_relaxed);
  entry.videoType.store(videoType, std::memory_order_relaxed);
  // This order survives a writer killed at any point: room is spent before a frame stands in it, and the frame stands
  // before it is announced.
  ring.writePosition.store(*position + units * kRingUnit, std::memory_order_release);
  entry.number.store(number, std::memory_order_release);
  ring.lastFrameUs.store(now, std::memory_order_relaxed);
  ring.newest.store(number, std::memory_order_release);
  if ((flags & FRAME_FLAG_KEY) != 0) ring.newestKey.store(number, std::memory_order_release);
  Count(ring.framesWritten);
  AnnounceFrame(ring);
  return SeqOf(number);
}

bool RingWriter::SetExtra(const void* data, std::size_t size) {
  if (m_Ring == nullptr || size > kMaxExtraBytes || (data == nullptr && size > 0)) return false;
  return m_Ring->extra.Store(data, size);
}

int RingWriter::ReapReaders() { return m_Ring == nullptr ? 0 : ReapSlots(*m_Ring, ReapDepth::kThorough); }

}  // namespace oculora
