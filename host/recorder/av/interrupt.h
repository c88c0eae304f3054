// Ends blocking FFmpeg calls: on a stop signal, or when their time is over.
#pragma once

#include <cstdint>

#include "recorder/av/ffmpeg.h"

namespace oculora {

class Interrupt {
 public:
  // The calls that follow may take `ms` milliseconds together.
  void Arm(int ms);
  // Whether the last armed time has passed.
  bool TimedOut() const;
  // Points at this object, which must outlive the context it is given to.
  AVIOInterruptCB Callback() { return {&Interrupt::Check, this}; }

 private:
  static int Check(void* self);

  std::int64_t m_DeadlineUs = 0;
};

}  // namespace oculora
