// Pins: the byte ranges of the payload area that readers hold, and where the writer finds room between them.
//
// Everything counts in units of 64 bytes, as pin words do.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "shm/ring_layout.h"

namespace oculora {

// A payload of `bytes` bytes takes so many units.
inline std::uint64_t UnitsOf(std::uint64_t bytes) { return (bytes + kRingUnit - 1) / kRingUnit; }

inline std::uint64_t PinWord(std::uint64_t offsetBytes, std::uint64_t bytes) {
  return (offsetBytes / kRingUnit) << 32 | UnitsOf(bytes);
}

// The pins of a ring at one moment.
class PinSet {
 public:
  explicit PinSet(const Ring& ring);

  // The first position at or after `from` where `length` units fit: not across the end of the area, clear of every
  // pin, and less than a full circle away. Empty when there is none.
  std::optional<std::uint64_t> FindGap(std::uint64_t from, std::uint64_t length) const;

 private:
  struct Range {
    std::uint64_t begin, end;
  };

  // The end of the pins that overlap a range, 0 when none does.
  std::uint64_t EndOfOverlap(std::uint64_t begin, std::uint64_t end) const;

  std::uint64_t m_AreaUnits;
  std::size_t m_Count = 0;
  std::array<Range, kReaderSlots> m_Ranges;
};

}  // namespace oculora
