// How long to wait before the next attempt.
#pragma once

namespace oculora {

// Doubles from `firstMs` up to `capMs`; starts over after an attempt that went well for `goodRunMs`.
class Backoff {
 public:
  Backoff(int firstMs, int capMs, int goodRunMs) : m_FirstMs(firstMs), m_CapMs(capMs), m_GoodRunMs(goodRunMs) {}

  // The delay in milliseconds after an attempt that lasted `ranMs`.
  int NextDelayMs(long long ranMs);
  // The next failure counts as the first.
  void Reset() { m_NextMs = 0; }

 private:
  int m_FirstMs;
  int m_CapMs;
  int m_GoodRunMs;
  int m_NextMs = 0;  // 0: the next failure is the first
};

}  // namespace oculora
