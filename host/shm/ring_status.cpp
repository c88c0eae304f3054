// How a ring and its camera are doing: the source's state, the status of a ring, the connection status of a camera.
#include <velm/shmstream.h>

#include <algorithm>
#include <cstring>

#include "shm/monotonic.h"
#include "shm/reader_table.h"
#include "shm/ring_layout.h"
#include "shm/ring_writer.h"
#include "shm/segment.h"
#include "shm/sequence.h"
#include "shm/viewers.h"

namespace oculora {
namespace {

constexpr std::int64_t kSilenceUs = 30000000;  // a camera silent for so long is not connected
constexpr int kStreams = 3;                    // stream numbers of a camera's profiles

// What stands in Ring::source.
struct SourceReport {
  std::int32_t state;
  char reason[kMaxReasonBytes];
};
static_assert(sizeof(SourceReport) == kMaxReasonBytes + 4);

// The length of `text` cut to `limit` bytes, not within a UTF-8 character.
std::size_t CutLength(const std::string& text, std::size_t limit) {
  if (text.size() <= limit) return text.size();
  std::size_t length = limit;
  while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) --length;
  return length;
}

// The judgement on one ring.
struct Connection {
  bool watched;
  bool fed;
};

Connection JudgeRing(const Ring& ring, std::int64_t now) {
  const bool onDemand = ring.onDemand.load(std::memory_order_relaxed) != 0;
  const bool watched = IsStampedWithin(ring, kViewersGoneUs, now);
  std::int64_t lifeSign = ring.lastFrameUs.load(std::memory_order_relaxed);
  bool alive = lifeSign != 0;
  if (onDemand && watched) {  // frames cannot be older than the wish for them
    const std::int64_t asked = ring.firstStampUs.load(std::memory_order_relaxed);
    lifeSign = alive ? std::max(lifeSign, asked) : asked;
    alive = true;
  }
  const bool idle = onDemand && !watched;
  return {watched, idle || (alive && now - lifeSign <= kSilenceUs)};
}

}  // namespace

void RingWriter::SetState(SourceState state, const std::string& reason) {
  if (m_Ring == nullptr) return;
  SourceReport report{static_cast<std::int32_t>(state), {}};
  const std::size_t length = state == SourceState::kFailed ? CutLength(reason, kMaxReasonBytes) : 0;
  std::memcpy(report.reason, reason.data(), length);
  m_Ring->source.Store(&report, sizeof(report.state) + length);
}

bool ReadRingStatus(const RingId& id, RingStatus& status) {
  const RingMapping ring = MapRing(id);
  if (!ring) return false;
  SourceReport report{};
  const std::size_t size = ring->source.Load(&report, sizeof(report));
  const bool known = report.state >= 0 && report.state <= static_cast<std::int32_t>(SourceState::kFailed);
  status.state = known ? static_cast<SourceState>(report.state) : SourceState::kIdle;
  status.reason.assign(report.reason, size > sizeof(report.state) ? size - sizeof(report.state) : 0);
  status.lastFrameUs = ring->lastFrameUs.load(std::memory_order_relaxed);
  status.stampUs = ring->stampUs.load(std::memory_order_relaxed);
  status.firstStampUs = ring->firstStampUs.load(std::memory_order_relaxed);
  const std::uint64_t newest = ring->newest.load(std::memory_order_acquire);
  status.newestSeq = newest == 0 ? 0 : SeqOf(newest);
  status.framesWritten = ring->framesWritten.load(std::memory_order_relaxed);
  status.framesDropped = ring->framesDropped.load(std::memory_order_relaxed);
  status.readers = CountSlots(*ring);
  return true;
}

}  // namespace oculora

int GetCamConnStatus(int camId) {
  if (oculora::IsViewerCutOff(camId)) return 0;
  const std::int64_t now = oculora::MonotonicUs();
  bool anyWatched = false;
  bool watchedFed = false;
  bool otherFed = false;
  for (int stream = 0; stream < oculora::kStreams; ++stream) {
    const oculora::RingMapping ring = oculora::MapRing({camId, stream, oculora::RingKind::kVideo});
    if (!ring) continue;
    const oculora::Connection connection = oculora::JudgeRing(*ring, now);
    anyWatched |= connection.watched;
    (connection.watched ? watchedFed : otherFed) |= connection.fed;
  }
  // An idle stream says nothing about a camera of which another stream is watched and silent.
  return (anyWatched ? watchedFed : otherFed) ? 1 : 0;
}
