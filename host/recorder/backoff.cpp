// How long to wait before the next attempt.
#include "recorder/backoff.h"

#include <algorithm>

namespace oculora {

int Backoff::NextDelayMs(long long ranMs) {
  if (ranMs >= m_GoodRunMs || m_NextMs == 0) m_NextMs = m_FirstMs;
  const int delay = m_NextMs;
  m_NextMs = std::min(m_NextMs * 2, m_CapMs);
  return delay;
}

}  // namespace oculora
