// Live stamps: how viewers tell the recorder that they are there.
#pragma once

#include <cstdint>

#include "shm/ring_layout.h"

namespace oculora {

// Viewers whose newest stamp is older are gone; the next stamp is the first one of new viewers.
constexpr std::int64_t kViewersGoneUs = 15000000;

// Stamps at `nowUs`.
void StampRing(Ring& ring, std::int64_t nowUs);

// Wakes a writer that waits for viewers.
void AnnounceViewer(Ring& ring);

// Whether the newest stamp is at most `withinUs` old.
inline bool IsStampedWithin(const Ring& ring, std::int64_t withinUs, std::int64_t nowUs) {
  const std::int64_t stamp = ring.stampUs.load(std::memory_order_relaxed);
  return stamp != 0 && nowUs - stamp <= withinUs;
}

// Whether a viewer of that camera in this process still holds on to a ring that was retired.
bool IsViewerCutOff(int camId);

}  // namespace oculora
