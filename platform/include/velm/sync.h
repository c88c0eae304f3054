// The host's mutex.
#pragma once

#include <pthread.h>

// A plain mutex with default attributes. Destroying it waits for a holder: it is locked and unlocked once first.
class QmMutex {
 public:
  QmMutex() { pthread_mutex_init(&m_Mutex, nullptr); }
  ~QmMutex() {
    Lock();
    Unlock();
    pthread_mutex_destroy(&m_Mutex);
  }
  QmMutex(const QmMutex&) = delete;
  QmMutex& operator=(const QmMutex&) = delete;

  void Lock() { pthread_mutex_lock(&m_Mutex); }
  void Unlock() { pthread_mutex_unlock(&m_Mutex); }

 private:
  pthread_mutex_t m_Mutex;
};
