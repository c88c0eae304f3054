// Lets a paced reading loop sleep until the next frame. See frame_signal.h.
#include "shm/frame_signal.h"

#include <ctime>

#include "shm/futex.h"
#include "shm/ring_layout.h"

namespace oculora {
namespace {

struct Watched {
  Ring* ring = nullptr;
  std::uint32_t announced = 0;
};

thread_local Watched t_Watched;
thread_local bool t_Copies = false;

FrameWait Sleep(std::int64_t us) {
  const timespec pause{static_cast<time_t>(us / 1000000), static_cast<long>(us % 1000000) * 1000};
  return nanosleep(&pause, nullptr) == 0 ? FrameWait::kTimeout : FrameWait::kSignal;
}

}  // namespace

void AnnounceFrame(Ring& ring) {
  ring.announced.fetch_add(1, std::memory_order_release);
  FutexWakeAll(ring.announced);
}

void WatchFrames(Ring& ring) { t_Watched = {&ring, ring.announced.load(std::memory_order_acquire)}; }

void ForgetFrames(const Ring& ring) {
  if (t_Watched.ring == &ring) t_Watched = {};
}

void NoteCopyingReader() { t_Copies = true; }

FrameWait WaitForFrame(std::int64_t timeoutUs) {
  if (t_Watched.ring == nullptr) return t_Copies ? Sleep(timeoutUs) : FrameWait::kNoRing;
  std::atomic<std::uint32_t>& word = t_Watched.ring->announced;
  if (!FutexWait(word, t_Watched.announced, timeoutUs)) return FrameWait::kSignal;
  return word.load(std::memory_order_relaxed) == t_Watched.announced ? FrameWait::kTimeout : FrameWait::kFrame;
}

}  // namespace oculora
