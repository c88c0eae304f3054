// A small block of bytes in shared memory that one process replaces while others read it.
//
// Two slots and a generation number: the writer fills the slot that is not current and then makes it current, so
// readers never wait for it, and a writer that dies half-way leaves the previous content in place. The words are
// relaxed atomics: reading a slot while it is overwritten is then harmless, the generation check throws the copy away.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace oculora {

template <std::size_t kCapacity>
struct SeqBlock {
  static_assert(kCapacity % 8 == 0);
  static constexpr std::size_t kWords = kCapacity / 4;

  struct Slot {
    std::atomic<std::uint32_t> size;
    std::atomic<std::uint32_t> reserved;
    std::atomic<std::uint32_t> words[kWords];
  };

  std::atomic<std::uint64_t> generation;  // bit 0: the current slot
  Slot slots[2];

  // One storing process at a time. False when `size` is over the capacity.
  bool Store(const void* data, std::size_t size) {
    if (size > kCapacity) return false;
    const std::uint64_t next = generation.load(std::memory_order_relaxed) + 1;
    Slot& slot = slots[next & 1];
    // Readers of the generation that used this slot must see that it is over before they see new words.
    std::atomic_thread_fence(std::memory_order_release);
    slot.size.store(static_cast<std::uint32_t>(size), std::memory_order_relaxed);
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (std::size_t at = 0; at < size; at += 4) {
      std::uint32_t word = 0;
      std::memcpy(&word, bytes + at, std::min<std::size_t>(4, size - at));
      slot.words[at / 4].store(word, std::memory_order_relaxed);
    }
    generation.store(next, std::memory_order_release);
    return true;
  }

  // Copies at most `capacity` bytes and returns how many. 0 also when the block was replaced faster than it could be
  // read, many times in a row.
  std::size_t Load(void* data, std::size_t capacity) const {
    for (int attempt = 0; attempt < 64; ++attempt) {
      const std::uint64_t current = generation.load(std::memory_order_acquire);
      const Slot& slot = slots[current & 1];
      const std::size_t size = std::min<std::size_t>({slot.size.load(std::memory_order_relaxed), kCapacity, capacity});
      auto* bytes = static_cast<unsigned char*>(data);
      for (std::size_t at = 0; at < size; at += 4) {
        const std::uint32_t word = slot.words[at / 4].load(std::memory_order_relaxed);
        std::memcpy(bytes + at, &word, std::min<std::size_t>(4, size - at));
      }
      std::atomic_thread_fence(std::memory_order_acquire);
      if (generation.load(std::memory_order_relaxed) == current) return size;
    }
    return 0;
  }
};

}  // namespace oculora
