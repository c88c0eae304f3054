// Live stamps, the wake-up of the recorder, and waiting for it. See viewers.h.
#include "shm/viewers.h"

#include <sys/shm.h>

#include <atomic>

#include "shm/futex.h"
#include "shm/monotonic.h"
#include "shm/segment.h"

namespace oculora {
namespace {

// The camera of the viewer in this process whose ring was retired; a request process watches one.
std::atomic<int> g_CutOffCamId{-1};

}  // namespace

void StampRing(Ring& ring, std::int64_t nowUs) {
  if (!IsStampedWithin(ring, kViewersGoneUs, nowUs)) ring.firstStampUs.store(nowUs, std::memory_order_relaxed);
  ring.stampUs.store(nowUs, std::memory_order_relaxed);
}

void AnnounceViewer(Ring& ring) {
  ring.arrivals.fetch_add(1, std::memory_order_release);
  FutexWakeAll(ring.arrivals);
}

bool IsViewerCutOff(int camId) { return g_CutOffCamId.load(std::memory_order_relaxed) == camId; }

bool RingWriter::IsWatched(std::int64_t withinUs) const {
  return m_Ring != nullptr && IsStampedWithin(*m_Ring, withinUs, MonotonicUs());
}

bool RingWriter::WaitForViewer(int timeoutMs) {
  if (m_Ring == nullptr) return false;
  const std::int64_t deadline = MonotonicUs() + std::int64_t{timeoutMs} * 1000;
  const std::uint32_t seen = m_Ring->arrivalsSeen.load(std::memory_order_relaxed);
  while (m_Ring->arrivals.load(std::memory_order_acquire) == seen) {
    const std::int64_t left = deadline - MonotonicUs();
    if (left <= 0 || !FutexWait(m_Ring->arrivals, seen, left)) return false;
  }
  m_Ring->arrivalsSeen.store(m_Ring->arrivals.load(std::memory_order_acquire), std::memory_order_relaxed);
  return true;
}

}  // namespace oculora

namespace {

oculora::Ring* AsRing(void* ring) { return static_cast<oculora::Ring*>(ring); }

bool IsRetired(void* ring) { return AsRing(ring)->retired.load(std::memory_order_relaxed) != 0; }

// Detaches a viewer's ring.
void LeaveRing(int camId, void*& ring) {
  if (ring == nullptr) return;
  shmdt(ring);
  ring = nullptr;
  oculora::g_CutOffCamId.compare_exchange_strong(camId, -1);
}

}  // namespace

LiveStreamUpdater::~LiveStreamUpdater() { LeaveRing(m_CamId, m_Ring); }

void LiveStreamUpdater::Init(int camId, int streamNo) {
  LeaveRing(m_CamId, m_Ring);
  m_CamId = camId;
  m_StreamNo = streamNo;
}

void LiveStreamUpdater::StartLive() {
  if (m_Ring != nullptr && IsRetired(m_Ring)) LeaveRing(m_CamId, m_Ring);
  if (m_Ring == nullptr) m_Ring = oculora::MapRing({m_CamId, m_StreamNo, oculora::RingKind::kVideo}).Release();
  if (m_Ring == nullptr) return;
  oculora::StampRing(*AsRing(m_Ring), oculora::MonotonicUs());
  oculora::AnnounceViewer(*AsRing(m_Ring));
}

void LiveStreamUpdater::UpdateStamp() {
  if (m_Ring == nullptr) return;
  // Whoever replaced the ring knows nothing of this viewer: let its next look at the connection end it.
  if (IsRetired(m_Ring)) oculora::g_CutOffCamId.store(m_CamId, std::memory_order_relaxed);
  oculora::StampRing(*AsRing(m_Ring), oculora::MonotonicUs());
}
