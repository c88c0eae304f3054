// The reader table of a ring. See reader_table.h.
#include "shm/reader_table.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace oculora {
namespace {

std::uint32_t SlotsUsed(const Ring& ring) {
  return std::min(ring.slotsUsed.load(std::memory_order_acquire), kReaderSlots);
}

// Fields 3 (state) and 22 (start time) of /proc/PID/stat. False when it cannot be read.
bool ReadProcStat(pid_t pid, char& state, std::uint32_t& start) {
  char path[32];
  std::snprintf(path, sizeof(path), "/proc/%d/stat", static_cast<int>(pid));
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  char text[1024];
  const ssize_t got = read(fd, text, sizeof(text) - 1);
  close(fd);
  if (got <= 0) return false;
  text[got] = '\0';
  const char* at = std::strrchr(text, ')');  // the name before it may hold anything
  if (at == nullptr || at[1] != ' ') return false;
  state = at[2];
  for (int field = 2; field < 22; ++field) {
    at = std::strchr(at + 1, ' ');
    if (at == nullptr) return false;
  }
  start = static_cast<std::uint32_t>(std::strtoull(at + 1, nullptr, 10));
  return true;
}

// The owner word of this process. Kept per process: a forked child gets its own.
std::uint64_t OwnWord() {
  static std::atomic<std::uint64_t> cached{0};
  const pid_t pid = getpid();
  std::uint64_t word = cached.load(std::memory_order_relaxed);
  if (word >> 32 == static_cast<std::uint64_t>(pid)) return word;
  char state = 0;
  std::uint32_t start = 0;  // stays 0 without /proc: then the pid alone counts
  ReadProcStat(pid, state, start);
  word = static_cast<std::uint64_t>(pid) << 32 | start;
  cached.store(word, std::memory_order_relaxed);
  return word;
}

// Whether the process of an owner word is certainly gone. In doubt it lives.
bool IsGone(std::uint64_t owner, ReapDepth depth) {
  const auto pid = static_cast<pid_t>(owner >> 32);
  if (pid <= 0) return true;
  if (kill(pid, 0) != 0 && errno == ESRCH) return true;
  if (depth == ReapDepth::kQuick) return false;
  char state = 0;
  std::uint32_t start = 0;
  if (!ReadProcStat(pid, state, start)) return false;
  const auto ownersStart = static_cast<std::uint32_t>(owner);
  return state == 'Z' || state == 'X' || (ownersStart != 0 && ownersStart != start);
}

// Makes a slot this process's own, with nothing pinned, if `expected` still owns it. Taking a dead reader's slot over
// before its pin is cleared keeps a second reaper from clearing the pin of the slot's next owner.
bool TakeSlot(ReaderSlot& slot, std::uint64_t expected, std::uint64_t own) {
  if (!slot.owner.compare_exchange_strong(expected, own, std::memory_order_acq_rel)) return false;
  slot.pin.store(0, std::memory_order_release);
  return true;
}

void RaiseSlotsUsed(Ring& ring, std::uint32_t count) {
  std::uint32_t used = ring.slotsUsed.load(std::memory_order_relaxed);
  while (used < count && !ring.slotsUsed.compare_exchange_weak(used, count, std::memory_order_acq_rel)) {
  }
}

}  // namespace

int ClaimSlot(Ring& ring) {
  const std::uint64_t own = OwnWord();
  for (const bool reap : {false, true}) {
    for (std::uint32_t i = 0; i < kReaderSlots; ++i) {
      ReaderSlot& slot = ring.readers[i];
      const std::uint64_t owner = slot.owner.load(std::memory_order_relaxed);
      const bool free = owner == 0 || (reap && owner != own && IsGone(owner, ReapDepth::kThorough));
      if (!free || !TakeSlot(slot, owner, own)) continue;
      RaiseSlotsUsed(ring, i + 1);
      return static_cast<int>(i);
    }
  }
  return -1;
}

void ReleaseSlot(Ring& ring, int slot) {
  ReaderSlot& mine = ring.readers[slot];
  if (mine.owner.load(std::memory_order_relaxed) != OwnWord()) return;
  mine.pin.store(0, std::memory_order_release);
  mine.owner.store(0, std::memory_order_release);
}

int ReapSlots(Ring& ring, ReapDepth depth) {
  const std::uint64_t own = OwnWord();
  const std::uint32_t used = SlotsUsed(ring);
  int reaped = 0;
  for (std::uint32_t i = 0; i < used; ++i) {
    ReaderSlot& slot = ring.readers[i];
    const std::uint64_t owner = slot.owner.load(std::memory_order_relaxed);
    if (owner == 0 || owner == own || !IsGone(owner, depth) || !TakeSlot(slot, owner, own)) continue;
    slot.owner.store(0, std::memory_order_release);
    ++reaped;
  }
  return reaped;
}

int CountSlots(const Ring& ring) {
  const std::uint32_t used = SlotsUsed(ring);
  int count = 0;
  for (std::uint32_t i = 0; i < used; ++i) {
    if (ring.readers[i].owner.load(std::memory_order_relaxed) != 0) ++count;
  }
  return count;
}

}  // namespace oculora
