// The progress cells of a site. See progress_table.h.
#include "media/progress_table.h"

#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include "shm/monotonic.h"

namespace oculora {
namespace {

constexpr int kClaimAttempts = 100;

using Word = std::atomic<std::uint64_t>;

constexpr std::uint64_t MakeWord(std::uint64_t content, std::uint32_t generation) { return content << 32 | generation; }
constexpr std::uint32_t GenerationOf(std::uint64_t word) { return static_cast<std::uint32_t>(word); }
constexpr std::uint64_t ContentOf(std::uint64_t word) { return word >> 32; }

// A cell as it was at some moment.
struct Sight {
  ProgressCell* cell = nullptr;
  std::uint64_t keyHigh = 0;  // words as they were read
  std::uint64_t value = 0;
};

// Places of a key follow one another; far-away keys begin anywhere.
std::uint64_t Hash(std::uint64_t key) {
  key = (key ^ key >> 32) * 0x9E37'79B9'7F4A'7C15;
  return key ^ key >> 29;
}

ProgressCell& CellAt(ProgressTable& table, std::uint64_t key, std::uint32_t place) {
  return table.cells[(Hash(key) + place) % kProgressCells];
}

// The first cell counts: processes that claimed two for a key at the same moment meet there.
bool Find(ProgressTable& table, std::uint64_t key, Sight& sight) {
  for (std::uint32_t place = 0; place < kProgressReach; ++place) {
    ProgressCell& cell = CellAt(table, key, place);
    const std::uint64_t high = cell.keyHigh.load(), low = cell.keyLow.load(), value = cell.value.load();
    const std::uint32_t generation = GenerationOf(high);
    if (GenerationOf(low) != generation || GenerationOf(value) != generation) continue;
    if ((ContentOf(high) << 32 | ContentOf(low)) != key) continue;
    sight = {&cell, high, value};
    return true;
  }
  return false;
}

// Free cells have not been used at all.
Sight LeastUsed(ProgressTable& table, std::uint64_t key) {
  Sight least;
  std::int64_t leastUs = 0;
  for (std::uint32_t place = 0; place < kProgressReach; ++place) {
    ProgressCell& cell = CellAt(table, key, place);
    const std::uint64_t high = cell.keyHigh.load();  // before the time: whoever takes the cell changes it first
    const std::int64_t usedUs = cell.usedUs.load();
    if (least.cell != nullptr && usedUs >= leastUs) continue;
    least = {&cell, high, 0};
    leastUs = usedUs;
  }
  return least;
}

// Unless the word is of that generation or a later one.
void Raise(Word& word, std::uint64_t content, std::uint32_t generation) {
  std::uint64_t seen = word.load();
  while (static_cast<std::int32_t>(generation - GenerationOf(seen)) > 0 &&
         !word.compare_exchange_weak(seen, MakeWord(content, generation))) {
  }
}

void TakeOver(const Sight& sight, std::uint64_t key, std::int64_t nowUs) {
  ProgressCell& cell = *sight.cell;
  const std::uint32_t generation = GenerationOf(sight.keyHigh) + 1;
  std::uint64_t seen = sight.keyHigh;
  if (!cell.keyHigh.compare_exchange_strong(seen, MakeWord(key >> 32, generation))) return;
  cell.usedUs.store(nowUs);
  Raise(cell.keyLow, key & 0xFFFF'FFFF, generation);
  Raise(cell.value, static_cast<std::uint32_t>(kNoProgress), generation);
}

bool IsTrusted(int shmId) {
  shmid_ds status{};
  if (shmctl(shmId, IPC_STAT, &status) != 0 || status.shm_segsz < sizeof(ProgressTable)) return false;
  const uid_t self = geteuid(), maker = status.shm_perm.cuid;
  return self == 0 || maker == self || maker == 0;
}

}  // namespace

ProgressTable* MapProgressTable(bool create) {
  const int shmId = shmget(kProgressShmKey, create ? sizeof(ProgressTable) : 0, create ? IPC_CREAT | 0600 : 0);
  if (shmId < 0 || !IsTrusted(shmId)) return nullptr;
  void* address = shmat(shmId, nullptr, 0);
  if (address == reinterpret_cast<void*>(-1)) return nullptr;
  auto* table = static_cast<ProgressTable*>(address);
  std::uint64_t header = 0;
  if (table->header.compare_exchange_strong(header, kProgressHeader) || header == kProgressHeader) return table;
  shmdt(address);
  return nullptr;
}

void RemoveProgressTable() {
  const int shmId = shmget(kProgressShmKey, 0, 0);
  if (shmId >= 0) shmctl(shmId, IPC_RMID, nullptr);
}

bool ClaimCell(ProgressTable& table, std::uint64_t key) {
  Sight sight;
  for (int attempt = 0; attempt < kClaimAttempts; ++attempt) {
    if (Find(table, key, sight)) {
      sight.cell->usedUs.store(MonotonicUs());
      return true;
    }
    TakeOver(LeastUsed(table, key), key, MonotonicUs());
  }
  return false;
}

std::int32_t ReadCell(ProgressTable& table, std::uint64_t key) {
  Sight sight;
  if (!Find(table, key, sight)) return kNoProgress;
  sight.cell->usedUs.store(MonotonicUs());
  return static_cast<std::int32_t>(ContentOf(sight.value));
}

bool WriteCell(ProgressTable& table, std::uint64_t key, std::int32_t value) {
  Sight sight;
  if (!Find(table, key, sight)) return false;
  sight.cell->usedUs.store(MonotonicUs());
  const std::uint32_t generation = GenerationOf(sight.value);
  while (
      !sight.cell->value.compare_exchange_weak(sight.value, MakeWord(static_cast<std::uint32_t>(value), generation))) {
    if (GenerationOf(sight.value) != generation) return false;
  }
  return true;
}

void ClearCell(ProgressTable& table, std::uint64_t key) {
  Sight sight;
  if (Find(table, key, sight)) TakeOver(sight, 0, 0);
}

}  // namespace oculora
