// A ring attached for reading.
#pragma once

#include <sys/shm.h>

#include "velm/shmstream.h"

// Stops reading and detaches at its end. False when the ring could not be attached.
class AttachedRing {
 public:
  explicit AttachedRing(ShmStreamFifo* ring) : m_Ring(ring) {}
  ~AttachedRing() {
    if (m_Ring == nullptr) return;
    m_Ring->StopRead(info);  // before the memory goes; harmless when reading was not started
    shmdt(m_Ring);
  }
  AttachedRing(const AttachedRing&) = delete;
  AttachedRing& operator=(const AttachedRing&) = delete;

  explicit operator bool() const { return m_Ring != nullptr; }
  ShmStreamFifo* operator->() const { return m_Ring; }

  DATA_ENTRY_INFO info{};  // the reader's cursor

 private:
  ShmStreamFifo* m_Ring;
};
