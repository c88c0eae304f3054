// When the frames of a file are due, also across its loops.
#pragma once

#include <cstdint>
#include <optional>

namespace oculora {

class Pacer {
 public:
  // `fps` 0: at the distances of the time stamps.
  explicit Pacer(int fps) : m_Fps(fps) {}

  // When the next frame is due (CLOCK_MONOTONIC microseconds), now being `nowUs`. `stampUs` is its place in the file,
  // if known, `durationUs` how long it is shown, 0 when unknown. The first frame is due at once; one that is late by
  // more than a second makes the rest late as well instead of being caught up with.
  std::int64_t NextDueUs(std::int64_t nowUs, std::optional<std::int64_t> stampUs, std::int64_t durationUs);

  // The next frame is the file's first again; it follows the last one at that one's duration.
  void NextLoop() { m_LastStampUs.reset(); }

 private:
  std::int64_t StepUs(std::optional<std::int64_t> stampUs) const;

  int m_Fps;
  std::optional<std::int64_t> m_DueUs;
  std::optional<std::int64_t> m_LastStampUs;
  std::int64_t m_LastDurationUs = 0;
};

}  // namespace oculora
