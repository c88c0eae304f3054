// Ends blocking FFmpeg calls: on a stop signal, or when their time is over.
#include "recorder/av/interrupt.h"

#include "recorder/clock.h"
#include "recorder/stop_signal.h"

namespace oculora {

void Interrupt::Arm(int ms) {
  m_DeadlineUs = MonotonicUs() + std::int64_t{ms} * 1000;
  KickWatchdog();
}

bool Interrupt::TimedOut() const { return MonotonicUs() >= m_DeadlineUs; }

int Interrupt::Check(void* self) { return StopRequested() || static_cast<Interrupt*>(self)->TimedOut() ? 1 : 0; }

}  // namespace oculora
