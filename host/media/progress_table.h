// The progress cells of a site: numbers that processes share by keys which clients chose.
//
// One System V segment holds them all, and nobody waits for anybody. A cell is three words that each carry the cell's
// generation; it counts only while the three agree. Taking a cell over raises the generation of the first word by
// compare-and-swap, which one process wins, then those of the others. Whoever dies in between leaves a cell that does
// not count and that is taken over like any other.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace oculora {

constexpr std::uint64_t kProgressHeader = 0x4F43'5052'0000'0001;  // a magic above, the version of this layout below
constexpr std::uint32_t kProgressCells = 1024;
constexpr std::uint32_t kProgressReach = 16;           // a key's cell is one of so many, from its hash on
constexpr std::int32_t kProgressShmKey = 0x5000'0001;  // the low half: the layout; rings have 0x4F on top
constexpr std::int32_t kNoProgress = -1;               // what a cell holds that nobody set

// Each word: 32 bits of content above, the generation below.
struct ProgressCell {
  std::atomic<std::uint64_t> keyHigh;
  std::atomic<std::uint64_t> keyLow;
  std::atomic<std::uint64_t> value;
  std::atomic<std::int64_t> usedUs;  // CLOCK_MONOTONIC; 0: free
};

// Zeros are a table of free cells that lacks its header alone; whoever comes first adds it.
struct ProgressTable {
  std::atomic<std::uint64_t> header;
  std::uint64_t reserved[7];
  ProgressCell cells[kProgressCells];
};

static_assert(std::atomic<std::uint64_t>::is_always_lock_free && std::atomic<std::int64_t>::is_always_lock_free);
static_assert(std::is_standard_layout_v<ProgressTable> && sizeof(ProgressCell) == 32);
static_assert(offsetof(ProgressTable, cells) == 64 && sizeof(ProgressTable) == 64 + 32 * 1024);

// Attaches the table; with `create` makes it when there is none. Null when there is none, or the segment under its key
// is a stranger's or of another layout. To be detached with shmdt(2).
ProgressTable* MapProgressTable(bool create);
// Removes the table; processes that are attached keep the memory. Harmless when there is none.
void RemoveProgressTable();

// Makes sure that `key`, which is not 0, has a cell: the one it has, else that of its places which is free or was used
// longest ago. False when others were faster every time.
bool ClaimCell(ProgressTable& table, std::uint64_t key);
// What the key's cell holds; kNoProgress without a cell.
std::int32_t ReadCell(ProgressTable& table, std::uint64_t key);
// False without a cell.
bool WriteCell(ProgressTable& table, std::uint64_t key, std::int32_t value);
// Frees the key's cell.
void ClearCell(ProgressTable& table, std::uint64_t key);

}  // namespace oculora
