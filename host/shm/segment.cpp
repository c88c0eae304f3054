// Rings as SysV shared-memory segments. See segment.h.
#include "shm/segment.h"

#include <sys/shm.h>
#include <unistd.h>

#include <cerrno>
#include <new>

#include "shm/viewers.h"

namespace oculora {
namespace {

// A segment under a ring's key, whatever it holds.
struct RawSegment {
  int shmId = -1;
  std::size_t bytes = 0;
  uid_t maker = 0;
};

// Only the own user's and root's segments count, so that no stranger can put pictures under a ring's key; to root,
// everyone's.
bool FindSegment(key_t key, RawSegment& segment) {
  segment.shmId = shmget(key, 0, 0);
  if (segment.shmId < 0) return false;
  shmid_ds status{};
  if (shmctl(segment.shmId, IPC_STAT, &status) != 0) return false;
  segment.bytes = status.shm_segsz;
  segment.maker = status.shm_perm.cuid;
  const uid_t self = geteuid();
  if (self != 0 && segment.maker != self && segment.maker != 0) {
    errno = EACCES;
    return false;
  }
  return true;
}

// A segment of any content, attached as if it were a ring. Nothing of it may be trusted yet.
RingMapping MapSegment(int shmId) {
  void* address = shmat(shmId, nullptr, 0);
  if (address == reinterpret_cast<void*>(-1)) return {};
  return RingMapping(static_cast<Ring*>(address));
}

bool HasThisLayout(const Ring& ring, std::size_t segmentBytes) {
  return ring.magic.load(std::memory_order_acquire) == kRingMagic && ring.version == kRingVersion &&
         ring.entryCount == kRingEntries && ring.readerSlots == kReaderSlots && ring.dataBytes > 0 &&
         ring.dataBytes % kRingUnit == 0 && ring.dataBytes <= kMaxDataBytes &&
         segmentBytes >= sizeof(Ring) + ring.dataBytes;
}

}  // namespace

RingMapping::~RingMapping() {
  if (m_Ring != nullptr) shmdt(m_Ring);
}

std::optional<key_t> RingKey(const RingId& id) {
  const bool known = id.kind == RingKind::kVideo || id.kind == RingKind::kAudio;
  if (id.camId < 0 || id.camId >= 1 << 18 || id.streamNo < 0 || id.streamNo > 15 || !known) {
    errno = EINVAL;
    return std::nullopt;
  }
  return static_cast<key_t>(0x4F000000 | id.camId << 5 | id.streamNo << 1 | static_cast<int>(id.kind));
}

RingMapping MapRing(const RingId& id, Maker maker) {
  const std::optional<key_t> key = RingKey(id);
  RawSegment segment;
  if (!key || !FindSegment(*key, segment)) return {};
  if (maker == Maker::kSelf && segment.maker != geteuid()) {
    errno = EACCES;
    return {};
  }
  if (segment.bytes < sizeof(Ring)) {
    errno = EPROTO;
    return {};
  }
  RingMapping ring = MapSegment(segment.shmId);
  if (ring && !HasThisLayout(*ring, segment.bytes)) {
    ring = RingMapping();
    errno = EPROTO;
  }
  return ring;
}

RingMapping MakeRing(const RingId& id, std::size_t dataBytes, bool onDemand) {
  const std::optional<key_t> key = RingKey(id);
  if (!key) return {};
  const int shmId = shmget(*key, sizeof(Ring) + dataBytes, IPC_CREAT | IPC_EXCL | 0600);
  if (shmId < 0) return {};
  RingMapping raw = MapSegment(shmId);
  if (!raw) {
    const int error = errno;
    shmctl(shmId, IPC_RMID, nullptr);
    errno = error;
    return {};
  }
  Ring* ring = new (raw.Release()) Ring();
  ring->version = kRingVersion;
  ring->onDemand.store(onDemand ? 1 : 0, std::memory_order_relaxed);
  ring->dataBytes = dataBytes;
  ring->entryCount = kRingEntries;
  ring->readerSlots = kReaderSlots;
  ring->oldest.store(1, std::memory_order_relaxed);
  ring->magic.store(kRingMagic, std::memory_order_release);
  return RingMapping(ring);
}

bool RetireRing(const RingId& id) {
  const std::optional<key_t> key = RingKey(id);
  RawSegment segment;
  if (!key || !FindSegment(*key, segment)) return false;
  const RingMapping ring = MapSegment(segment.shmId);
  if (!ring) return false;
  // Without a magic it is a ring whose maker died before it was finished.
  const std::uint32_t magic = segment.bytes < kRingUnit ? ~kRingMagic : ring->magic.load(std::memory_order_acquire);
  if (magic != kRingMagic && magic != 0) {
    errno = EEXIST;
    return false;
  }
  ring->retired.store(1, std::memory_order_release);
  if (HasThisLayout(*ring, segment.bytes)) AnnounceViewer(*ring);  // a waiting writer looks up
  return shmctl(segment.shmId, IPC_RMID, nullptr) == 0;
}

}  // namespace oculora
