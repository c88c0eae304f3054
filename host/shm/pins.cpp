// Pins and the gaps between them. See pins.h.
#include "shm/pins.h"

#include <algorithm>

namespace oculora {

PinSet::PinSet(const Ring& ring) : m_AreaUnits(ring.dataBytes / kRingUnit) {
  const std::uint32_t used = std::min(ring.slotsUsed.load(std::memory_order_acquire), kReaderSlots);
  for (std::uint32_t i = 0; i < used; ++i) {
    const std::uint64_t pin = ring.readers[i].pin.load(std::memory_order_acquire);
    if (pin == 0) continue;
    const std::uint64_t begin = pin >> 32;
    m_Ranges[m_Count++] = {begin, begin + static_cast<std::uint32_t>(pin)};
  }
}

std::uint64_t PinSet::EndOfOverlap(std::uint64_t begin, std::uint64_t end) const {
  std::uint64_t last = 0;
  for (std::size_t i = 0; i < m_Count; ++i) {
    const Range& range = m_Ranges[i];
    if (range.begin < end && begin < range.end) last = std::max(last, range.end);
  }
  return last;
}

std::optional<std::uint64_t> PinSet::FindGap(std::uint64_t from, std::uint64_t length) const {
  for (std::uint64_t position = from; position < from + m_AreaUnits;) {
    const std::uint64_t offset = position % m_AreaUnits;
    if (offset + length > m_AreaUnits) {
      position += m_AreaUnits - offset;  // on to the start of the area
      continue;
    }
    const std::uint64_t blockedUntil = EndOfOverlap(offset, offset + length);
    if (blockedUntil == 0) return position;
    position += blockedUntil - offset;
  }
  return std::nullopt;
}

}  // namespace oculora
