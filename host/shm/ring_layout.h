// The bytes of a frame ring in shared memory. Operations stand elsewhere; docs/ref/ring.md explains the protocol.
//
// Processes of different word size share a ring, so every field has a fixed width and a fixed place, and every field
// that two processes touch is a lock-free atomic.
#pragma once

#include <velm/shmstream.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "shm/ring_writer.h"
#include "shm/seq_block.h"

namespace oculora {

constexpr std::uint32_t kRingMagic = 0x4E52434F;  // "OCRN" in memory
constexpr std::uint32_t kRingVersion = 1;
constexpr std::size_t kRingUnit = 64;  // payloads start at multiples of it; a cache line on the machines we know
constexpr std::uint32_t kRingEntries = 1024;
constexpr std::uint32_t kReaderSlots = 512;
constexpr std::size_t kMaxDataBytes = std::size_t{1} << 30;

// Where one frame lies. `number` is 0 while the frame is being overwritten; the other fields count only when `number`
// is the same before and after reading them.
struct alignas(kRingUnit) RingEntry {
  std::atomic<std::uint64_t> number;
  std::atomic<std::uint64_t> position;  // in the endless stream of payload bytes; modulo dataBytes: in the area
  std::atomic<std::int64_t> timestampUs;
  std::atomic<std::uint32_t> size;
  std::atomic<std::int32_t> flags;
  std::atomic<std::int32_t> videoType;
};

// One reader. A slot is a line of its own, so that readers do not slow each other down.
struct alignas(kRingUnit) ReaderSlot {
  std::atomic<std::uint64_t> owner;  // pid << 32 | low half of the process's start time; 0: free
  std::atomic<std::uint64_t> pin;    // offset / 64 << 32 | length / 64, rounded outwards; 0: nothing pinned
};

// The base is empty: the address of a ring is the address of the ShmStreamFifo that readers hold.
struct alignas(kRingUnit) Ring : ShmStreamFifo {
  // Written once, by the maker. Magic, version and the retired flag keep their places in every version.
  std::atomic<std::uint32_t> magic;  // stored last: a ring without it is not finished
  std::uint32_t version;
  std::atomic<std::uint32_t> retired;   // 1: another ring took its place, or none
  std::atomic<std::uint32_t> onDemand;  // 1: the camera runs only while watched
  std::uint64_t dataBytes;
  std::uint32_t entryCount;
  std::uint32_t readerSlots;

  // Written by the writer, with every frame.
  alignas(kRingUnit) std::atomic<std::uint64_t> newest;  // number of the newest frame; 0: none yet
  std::atomic<std::uint64_t> newestKey;                  // number of the newest key frame; 0: none yet
  std::atomic<std::uint64_t> oldest;                     // frames below are gone; newest + 1 when none is left
  std::atomic<std::uint64_t> writePosition;              // where the next payload goes
  std::atomic<std::int64_t> lastFrameUs;
  std::atomic<std::uint64_t> framesWritten;
  std::atomic<std::uint64_t> framesDropped;
  std::atomic<std::int64_t> lastReapUs;

  // Written by viewers, now and then by claiming readers, and with every frame.
  alignas(kRingUnit) std::atomic<std::int64_t> stampUs;
  std::atomic<std::int64_t> firstStampUs;
  std::atomic<std::uint32_t> arrivals;      // futex word: viewers that came, ever
  std::atomic<std::uint32_t> arrivalsSeen;  // by the writer
  std::atomic<std::uint32_t> slotsUsed;     // slots from here on were never claimed
  std::atomic<std::uint32_t> announced;     // futex word: frames written, ever

  alignas(kRingUnit) SeqBlock<128> source;  // SourceState as 32 bits, then the reason's text
  alignas(kRingUnit) SeqBlock<kMaxExtraBytes> extra;

  RingEntry entries[kRingEntries];
  ReaderSlot readers[kReaderSlots];
  // The payload area follows.
};

static_assert(std::atomic<std::uint32_t>::is_always_lock_free && std::atomic<std::int32_t>::is_always_lock_free);
static_assert(std::atomic<std::uint64_t>::is_always_lock_free && std::atomic<std::int64_t>::is_always_lock_free);
static_assert(sizeof(std::atomic<std::uint64_t>) == 8 && alignof(std::atomic<std::uint64_t>) == 8);
static_assert(sizeof(std::atomic<std::uint32_t>) == 4 && alignof(std::atomic<std::uint32_t>) == 4);
static_assert(std::is_standard_layout_v<ShmStreamFifo> && std::is_standard_layout_v<Ring>);
static_assert(sizeof(RingEntry) == 64 && offsetof(RingEntry, size) == 24 && offsetof(RingEntry, videoType) == 32);
static_assert(sizeof(ReaderSlot) == 64 && offsetof(ReaderSlot, pin) == 8);
static_assert(offsetof(Ring, magic) == 0 && offsetof(Ring, version) == 4 && offsetof(Ring, retired) == 8);
static_assert(offsetof(Ring, dataBytes) == 16 && offsetof(Ring, readerSlots) == 28);
static_assert(offsetof(Ring, newest) == 64 && offsetof(Ring, lastReapUs) == 120);
static_assert(offsetof(Ring, stampUs) == 128 && offsetof(Ring, slotsUsed) == 152 && offsetof(Ring, announced) == 156);
static_assert(offsetof(Ring, source) == 192 && sizeof(SeqBlock<128>) == 280);
static_assert(offsetof(Ring, extra) == 512 && sizeof(SeqBlock<1024>) == 2072);
static_assert(offsetof(Ring, entries) == 2624 && offsetof(Ring, readers) == 68160);
static_assert(sizeof(Ring) == 100928 && sizeof(Ring) % kRingUnit == 0);
static_assert(kMaxReasonBytes + 4 <= 128);

inline RingEntry& EntryOf(Ring& ring, std::uint64_t number) { return ring.entries[number % kRingEntries]; }
inline const RingEntry& EntryOf(const Ring& ring, std::uint64_t number) { return ring.entries[number % kRingEntries]; }

// The payload area.
inline unsigned char* DataOf(Ring& ring) { return reinterpret_cast<unsigned char*>(&ring) + sizeof(Ring); }
inline const unsigned char* DataOf(const Ring& ring) {
  return reinterpret_cast<const unsigned char*>(&ring) + sizeof(Ring);
}

}  // namespace oculora
