// The frames of a camera's ring, one after the other, held where they lie until they are written to disk.
#include "recorder/recording/frame_feed.h"

#include <sys/shm.h>
#include <velm/timing.h>

#include <chrono>

#include "shm/ring_writer.h"
#include "shm/sequence.h"

namespace oculora {
namespace {

constexpr int kPassUs = 10000;

// How many there are between two frames.
int Between(int before, int seq) {
  if (before == kSeqNone) return 0;
  return seq > before ? seq - before - 1 : kSeqLast - before + seq - kSeqFirst;
}

}  // namespace

FrameFeed::FrameFeed(int camId, int streamNo, std::size_t holdBytes)
    : m_CamId(camId), m_StreamNo(streamNo), m_HoldBytes(holdBytes) {}

FrameFeed::~FrameFeed() {
  if (m_Ring == nullptr) return;
  {
    const std::lock_guard lock(m_Lock);
    m_Stop = true;
  }
  if (m_Thread.joinable()) m_Thread.join();
  for (std::size_t i = 0; i < m_Joined; ++i) m_Ring->StopRead(m_Places[i].cursor);
  shmdt(m_Ring);
}

bool FrameFeed::Start() {
  m_Ring = LiveStreamFifoAt(m_CamId, m_StreamNo);
  if (m_Ring == nullptr) return false;
  // What lies in the ring of a camera that rested may be hours old; this only says where it ends.
  unsigned char* nowhere = nullptr;
  int size = 0, flags = 0;
  long long timestamp = 0;
  MediaES media{};
  m_Ring->ReadNext(m_Seq, nowhere, size, timestamp, media, flags, true);
  m_Viewer.Init(m_CamId, m_StreamNo);
  m_Viewer.StartLive();
  m_Thread = std::thread([this] { Run(); });
  return true;
}

void FrameFeed::Run() {
  DelayTimer timer(kPassUs);
  timer.BeginTiming();
  for (bool stop = false; !stop;) {
    m_Viewer.UpdateStamp();
    while (ReadOne()) {
    }
    timer.Delay();
    const std::lock_guard lock(m_Lock);
    stop = m_Stop;
  }
}

// Holds the next frame. False when there is none yet, or no more may be held.
bool FrameFeed::ReadOne() {
  Place* place = FreePlace();
  if (place == nullptr) return false;
  const STREAM_ENTRY* entry = m_Ring->ReadNext(m_Seq, place->cursor);
  const unsigned char* data = nullptr;
  int size = 0;
  const bool valid = m_Ring->GetValidFrame(entry, data, size);
  if (valid) {
    place->frame = {{data, static_cast<std::size_t>(size)},
                    (entry->flags & FRAME_FLAG_KEY) != 0,
                    Between(m_Seq, entry->seq),
                    entry->timestamp};
    m_Seq = entry->seq;
  } else {
    m_Ring->ReadFinish(entry, true, place->cursor);
  }
  const std::lock_guard lock(m_Lock);
  if (!valid) {
    m_Free.push_back(place);
    return false;
  }
  m_HeldBytes += static_cast<std::size_t>(size);
  m_Waiting.push_back(place);
  m_Arrived.notify_one();
  return !m_Stop;
}

FrameFeed::Place* FrameFeed::FreePlace() {
  const std::lock_guard lock(m_Lock);
  if (m_HeldBytes >= m_HoldBytes) return nullptr;
  if (!m_Free.empty()) {
    Place* place = m_Free.back();
    m_Free.pop_back();
    return place;
  }
  if (m_Joined == kPlaces) return nullptr;
  Place& place = m_Places[m_Joined];
  if (m_Ring->StartRead(place.cursor) != 0) return nullptr;
  // The table is full, so this one copies, at the price of a buffer: one of that kind is enough.
  if (place.cursor.slot == 0 && m_Joined > 0) {
    m_Ring->StopRead(place.cursor);
    return nullptr;
  }
  ++m_Joined;
  return &place;
}

const FeedFrame* FrameFeed::Next(int timeoutMs) {
  std::unique_lock lock(m_Lock);
  if (!m_Arrived.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] { return !m_Waiting.empty(); })) {
    return nullptr;
  }
  m_Current = m_Waiting.front();
  m_Waiting.pop_front();
  return &m_Current->frame;
}

void FrameFeed::Release() {
  if (m_Current == nullptr) return;
  m_Ring->ReadFinish(&m_Current->cursor.entry, true, m_Current->cursor);
  const std::lock_guard lock(m_Lock);
  m_HeldBytes -= m_Current->frame.data.size();
  m_Free.push_back(m_Current);
  m_Current = nullptr;
}

std::vector<std::uint8_t> FrameFeed::Extra() const {
  std::vector<std::uint8_t> extra(kMaxExtraBytes);
  int size = static_cast<int>(extra.size());
  m_Ring->GetExtra(extra.data(), size);
  extra.resize(static_cast<std::size_t>(size));
  return extra;
}

}  // namespace oculora
