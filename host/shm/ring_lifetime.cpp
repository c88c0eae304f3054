// Making, attaching, replacing and removing rings, for the recorder.
#include <sys/shm.h>

#include <cerrno>
#include <utility>

#include "shm/reader_table.h"
#include "shm/ring_layout.h"
#include "shm/ring_writer.h"
#include "shm/segment.h"

namespace oculora {
namespace {

// Whether the writer's own state makes sense, so that a ring damaged in whatever way is replaced, not continued.
bool IsConsistent(const Ring& ring) {
  const std::uint64_t newest = ring.newest.load(std::memory_order_relaxed);
  const std::uint64_t oldest = ring.oldest.load(std::memory_order_relaxed);
  const std::uint64_t position = ring.writePosition.load(std::memory_order_relaxed);
  return oldest >= 1 && oldest <= newest + 1 && newest - oldest + 1 <= kRingEntries && position % kRingUnit == 0;
}

// The ring under that id, if it can go on.
RingMapping MapReusable(const RingId& id, std::size_t dataBytes) {
  RingMapping ring = MapRing(id, Maker::kSelf);
  if (ring && (ring->dataBytes != dataBytes || ring->retired.load() != 0 || !IsConsistent(*ring))) return {};
  return ring;
}

}  // namespace

RingWriter::~RingWriter() {
  if (m_Ring != nullptr) shmdt(m_Ring);
}

RingWriter::RingWriter(RingWriter&& other) noexcept : m_Ring(std::exchange(other.m_Ring, nullptr)) {}

RingWriter& RingWriter::operator=(RingWriter&& other) noexcept {
  std::swap(m_Ring, other.m_Ring);
  return *this;
}

RingWriter RingWriter::Create(const RingId& id, std::size_t dataBytes, bool onDemand) {
  RingWriter writer;
  if (dataBytes == 0 || dataBytes > kMaxDataBytes) {
    errno = EINVAL;
    return writer;
  }
  const std::size_t wholeBytes = (dataBytes + kRingUnit - 1) / kRingUnit * kRingUnit;
  if (RingMapping ring = MapReusable(id, wholeBytes)) {
    ring->onDemand.store(onDemand ? 1 : 0, std::memory_order_relaxed);
    ReapSlots(*ring, ReapDepth::kThorough);
    writer.m_Ring = ring.Release();
  } else if (RetireRing(id) || errno == ENOENT) {
    writer.m_Ring = MakeRing(id, wholeBytes, onDemand).Release();
  }
  return writer;
}

RingWriter RingWriter::Attach(const RingId& id) {
  RingWriter writer;
  writer.m_Ring = MapRing(id).Release();
  return writer;
}

bool RemoveRing(const RingId& id) { return RetireRing(id); }

}  // namespace oculora
