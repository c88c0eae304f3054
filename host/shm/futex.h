// Sleeping on a word of shared memory, between processes.
#pragma once

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>

namespace oculora {

// Sleeps while `word` is `expected`, at most `timeoutUs`. False when a signal ended the sleep.
inline bool FutexWait(std::atomic<std::uint32_t>& word, std::uint32_t expected, std::int64_t timeoutUs) {
  // What the kernel expects from SYS_futex on every target, whatever time_t the C library is built with.
  const struct {
    long seconds;
    long nanoseconds;
  } timeout{static_cast<long>(timeoutUs / 1000000), static_cast<long>(timeoutUs % 1000000 * 1000)};
  return syscall(SYS_futex, &word, FUTEX_WAIT, expected, &timeout, nullptr, 0) == 0 || errno != EINTR;
}

inline void FutexWakeAll(std::atomic<std::uint32_t>& word) {
  syscall(SYS_futex, &word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

}  // namespace oculora
