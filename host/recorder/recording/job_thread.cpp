// A thread for work that must not hold up the writing of frames.
#include "recorder/recording/job_thread.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <utility>

namespace oculora {
namespace {

constexpr int kRetryMs = 2000;
constexpr int kNice = 10;
// Of ioprio_set(2). The last of those that always get their turn: the idle class may wait for ever on a busy disk.
constexpr int kOfThread = 1;
constexpr int kLowest = 2 << 13 | 7;

}  // namespace

void LowerPriority() {
  syscall(SYS_ioprio_set, kOfThread, 0, kLowest);
  setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), kNice);
}

JobThread::JobThread() : m_Thread([this] { Run(); }) {}

JobThread::~JobThread() {
  {
    const std::lock_guard lock(m_Lock);
    m_Stop = true;
    m_Changed.notify_all();
  }
  m_Thread.join();
}

void JobThread::Add(Job job) {
  const std::lock_guard lock(m_Lock);
  m_Jobs.push_back(std::move(job));
  m_Changed.notify_all();
}

bool JobThread::IsIdle() const { return WaitIdle(0); }

bool JobThread::WaitIdle(int timeoutMs) const {
  std::unique_lock lock(m_Lock);
  return m_Changed.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                            [this] { return m_Jobs.empty() && m_Later.empty() && !m_Busy; });
}

void JobThread::Run() {
  LowerPriority();
  std::unique_lock lock(m_Lock);
  auto retryAt = std::chrono::steady_clock::time_point::max();
  const auto hasWork = [this] { return m_Stop || !m_Jobs.empty(); };
  while (!m_Stop) {
    if (m_Later.empty()) {
      m_Changed.wait(lock, hasWork);
    } else if (!m_Changed.wait_until(lock, retryAt, hasWork)) {
      std::swap(m_Jobs, m_Later);
    }
    if (m_Stop || m_Jobs.empty()) continue;
    Job job = std::move(m_Jobs.front());
    m_Jobs.pop_front();
    m_Busy = true;
    lock.unlock();
    const bool done = job();
    lock.lock();
    m_Busy = false;
    if (!done) {
      if (m_Later.empty()) retryAt = std::chrono::steady_clock::now() + std::chrono::milliseconds(kRetryMs);
      m_Later.push_back(std::move(job));
    }
    m_Changed.notify_all();
  }
}

}  // namespace oculora
