// Frame numbers and the sequence numbers that callers see.
//
// Inside a ring frames are numbered 1, 2, 3, ... in 64 bits, so nothing there ever wraps. Callers see ints that go
// round a cycle of 2^30 above kSeqNone: at 25 frames a second once in 1.4 years. A position is mapped back to the frame
// number nearest to the newest frame, which makes "newer than" survive the wrap.
#pragma once

#include <velm/shmstream.h>

#include <cstdint>
#include <limits>
#include <optional>

namespace oculora {

constexpr int kSeqBeforeFirst = kSeqNone + 1;  // the position of a reader that joined an empty ring
constexpr int kSeqFirst = kSeqNone + 2;
constexpr std::uint32_t kSeqCycle = std::uint32_t{1} << 30;
constexpr int kSeqLast = kSeqFirst + static_cast<int>(kSeqCycle) - 1;
static_assert(kSeqCycle <= static_cast<std::uint32_t>(std::numeric_limits<int>::max() - kSeqFirst));

// The sequence number of frame `number`; 0 stands for the place before the first frame.
inline int SeqOf(std::uint64_t number) {
  if (number == 0) return kSeqBeforeFirst;
  return kSeqFirst + static_cast<int>((number - 1) & (kSeqCycle - 1));
}

// The frame number that position `seq` means in a ring whose newest frame is `newest`; empty for "no position".
inline std::optional<std::uint64_t> NumberOf(int seq, std::uint64_t newest) {
  if (seq <= kSeqNone || seq > kSeqLast) return std::nullopt;
  if (seq == kSeqBeforeFirst) return 0;
  const auto place = static_cast<std::uint64_t>(seq - kSeqFirst);
  const std::uint64_t age = (newest - 1 - place) & (kSeqCycle - 1);
  if (age >= kSeqCycle / 2) return newest + (kSeqCycle - age);  // ahead of the ring
  return age < newest ? newest - age : 0;
}

}  // namespace oculora
