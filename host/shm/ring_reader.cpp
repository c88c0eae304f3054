// Reading frames where they lie: the reader publishes a pin, and the writer goes around it.
#include <sys/mman.h>
#include <velm/shmstream.h>

#include <atomic>
#include <optional>

#include "shm/frame.h"
#include "shm/frame_signal.h"
#include "shm/pins.h"
#include "shm/reader_table.h"
#include "shm/ring_layout.h"
#include "shm/segment.h"
#include "shm/sequence.h"

namespace oculora {
namespace {

constexpr std::size_t kCopyBytes = kMaxFrameBytes;

// The cursor's slot, null when it has none.
ReaderSlot* SlotOf(Ring& ring, const DATA_ENTRY_INFO& info) {
  const bool joined = info.slot > 0 && info.slot <= static_cast<std::int32_t>(kReaderSlots);
  return joined ? &ring.readers[info.slot - 1] : nullptr;
}

void Unpin(Ring& ring, const DATA_ENTRY_INFO& info) {
  if (ReaderSlot* slot = SlotOf(ring, info)) slot->pin.store(0, std::memory_order_release);
}

// Makes sure that a loaded frame's bytes stay: either the writer finds the pin, or this finds the frame voided. The
// fence pairs with the writer's between voiding frames and looking for pins.
const unsigned char* PinFrame(Ring& ring, ReaderSlot& slot, const Frame& frame) {
  slot.pin.store(PinWord(frame.offset, frame.size), std::memory_order_release);
  std::atomic_thread_fence(std::memory_order_seq_cst);
  return IsStillThere(ring, frame.number) ? DataOf(ring) + frame.offset : nullptr;
}

// The frame's bytes for this cursor, pinned or copied; null when the writer got there first or the cursor never
// started.
const unsigned char* HoldFrame(Ring& ring, const Frame& frame, const DATA_ENTRY_INFO& info) {
  if (ReaderSlot* slot = SlotOf(ring, info)) return PinFrame(ring, *slot, frame);
  if (info.copy == nullptr || frame.size > static_cast<std::uint32_t>(info.copyCapacity)) return nullptr;
  return CopyFrame(ring, frame, info.copy) ? info.copy : nullptr;
}

// Hands out the frame that `choose` names (0: none), choosing again when the writer was faster.
template <typename Choose>
const STREAM_ENTRY* Take(Ring& ring, DATA_ENTRY_INFO& info, Choose choose) {
  WatchFrames(ring);
  for (int attempt = 0; attempt < kReadAttempts; ++attempt) {
    const std::uint64_t number = choose();
    if (number == 0) break;
    Frame frame;
    if (!LoadFrame(ring, number, frame)) continue;
    const unsigned char* data = HoldFrame(ring, frame, info);
    if (data == nullptr) continue;
    info.entry = {SeqOf(number), frame.flags, frame.timestampUs, data, static_cast<std::int32_t>(frame.size)};
    return &info.entry;
  }
  Unpin(ring, info);
  return nullptr;
}

// `number` if it is newer than position `seq`, else 0.
std::uint64_t IfNewer(std::uint64_t number, int seq, std::uint64_t newest) {
  const std::optional<std::uint64_t> position = NumberOf(seq, newest);
  return !position || number > *position ? number : 0;
}

}  // namespace
}  // namespace oculora

using oculora::Ring;

int ShmStreamFifo::StartRead(DATA_ENTRY_INFO& info) {
  if (info.slot != 0 || info.copy != nullptr) return 0;
  info.slot = oculora::ClaimSlot(static_cast<Ring&>(*this)) + 1;
  if (info.slot != 0) return 0;
  void* copy = mmap(nullptr, oculora::kCopyBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (copy == MAP_FAILED) return -1;
  info.copy = static_cast<unsigned char*>(copy);
  info.copyCapacity = static_cast<std::int32_t>(oculora::kCopyBytes);
  return 0;
}

void ShmStreamFifo::StopRead(DATA_ENTRY_INFO& info) {
  Ring& ring = static_cast<Ring&>(*this);
  oculora::ForgetFrames(ring);
  if (oculora::SlotOf(ring, info) != nullptr) oculora::ReleaseSlot(ring, info.slot - 1);
  if (info.copy != nullptr) munmap(info.copy, static_cast<std::size_t>(info.copyCapacity));
  info = {};
}

const STREAM_ENTRY* ShmStreamFifo::ReadLatest(int seq, DATA_ENTRY_INFO& info) {
  Ring& ring = static_cast<Ring&>(*this);
  return oculora::Take(ring, info, [&] {
    const std::uint64_t newest = oculora::NewestOf(ring);
    return oculora::IfNewer(newest, seq, newest);
  });
}

const STREAM_ENTRY* ShmStreamFifo::ReadLatestIFrame(int seq, DATA_ENTRY_INFO& info) {
  Ring& ring = static_cast<Ring&>(*this);
  return oculora::Take(ring, info, [&] {
    const std::uint64_t newest = oculora::NewestOf(ring);
    return oculora::IfNewer(oculora::NewestKeyOf(ring), seq, newest);
  });
}

const STREAM_ENTRY* ShmStreamFifo::ReadNext(int seq, DATA_ENTRY_INFO& info) {
  Ring& ring = static_cast<Ring&>(*this);
  return oculora::Take(ring, info, [&] { return oculora::NextAfter(ring, seq); });
}

bool ShmStreamFifo::GetValidFrame(const STREAM_ENTRY* entry, const unsigned char*& data, int& size) const {
  if (entry == nullptr || entry->data == nullptr || entry->size <= 0) return false;
  data = entry->data;
  size = entry->size;
  return true;
}

void ShmStreamFifo::ReadFinish(const STREAM_ENTRY* /*entry*/, bool /*release*/, DATA_ENTRY_INFO& info) {
  oculora::Unpin(static_cast<Ring&>(*this), info);
}

ShmStreamFifo* LiveStreamFifoAt(int camId, int streamNo) {
  return oculora::MapRing({camId, streamNo, oculora::RingKind::kVideo}).Release();
}

ShmStreamFifo* LiveAdoStreamFifoAt(int camId, int streamNo) {
  return oculora::MapRing({camId, streamNo, oculora::RingKind::kAudio}).Release();
}
