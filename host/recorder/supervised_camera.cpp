// One camera under supervision: its rings, its worker process and when to start that again.
#include "recorder/supervised_camera.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "recorder/clock.h"
#include "recorder/recorder_log.h"

namespace oculora {
namespace {

constexpr long long kGoodRunMs = 30000;

bool SameRing(const RingId& a, const RingId& b) {
  return a.camId == b.camId && a.streamNo == b.streamNo && a.kind == b.kind;
}

}  // namespace

SupervisedCamera::SupervisedCamera(CameraRecord camera) : m_Wanted(camera), m_Camera(std::move(camera)) { Apply(); }

void SupervisedCamera::SetWanted(std::optional<CameraRecord> camera) {
  const bool same = camera && SameSetup(m_Camera, *camera);
  m_Wanted = std::move(camera);
  if (same) {
    m_Camera.name = m_Wanted->name;
  } else if (m_Worker.IsRunning()) {
    m_Worker.Stop();
  } else {
    Apply();
  }
}

// Brings rings and worker in line with what is wanted; no worker runs.
void SupervisedCamera::Apply() {
  m_StartAtUs = 0;
  m_Backoff.Reset();
  m_LastTrouble.clear();
  if (!m_Wanted) {
    RemoveRings();
    return;
  }
  m_Camera = *m_Wanted;
  Start();
}

bool SupervisedCamera::ShouldRun() const { return m_Camera.enabled && !m_Camera.deleting && m_Camera.ownerNdId == 0; }

void SupervisedCamera::Start() {
  m_StartAtUs = 0;
  if (!MakeRings()) {
    Retry(0, std::string("no memory for its pictures: ") + std::strerror(errno));
    return;
  }
  if (!ShouldRun()) return;
  if (!m_Worker.Start(m_Camera.id)) Retry(0, std::string("no process can be started: ") + std::strerror(errno));
}

bool SupervisedCamera::MakeRings() {
  const std::vector<RingPlan> plan = PlanRings(m_Camera);
  for (const RingPlan& old : m_Rings) {
    const bool kept =
        std::any_of(plan.begin(), plan.end(), [&old](const RingPlan& p) { return SameRing(p.id, old.id); });
    if (!kept) RemoveRing(old.id);
  }
  m_Rings = plan;
  for (const RingPlan& ring : m_Rings) {
    RingWriter writer = RingWriter::Create(ring.id, ring.bytes, !m_Camera.stayOn);
    if (!writer.IsValid()) return false;
    writer.SetState(SourceState::kIdle, "");
  }
  return true;
}

void SupervisedCamera::RemoveRings() {
  for (const RingPlan& ring : m_Rings) RemoveRing(ring.id);
  m_Rings.clear();
}

void SupervisedCamera::Retry(long long ranMs, const std::string& trouble) {
  if (ranMs >= kGoodRunMs) m_LastTrouble.clear();
  m_StartAtUs = MonotonicUs() + m_Backoff.NextDelayMs(ranMs) * 1000LL;
  if (trouble != m_LastTrouble) {
    LogError("camera %d \"%s\" is started again: %s", m_Camera.id, m_Camera.name.c_str(), trouble.c_str());
  }
  m_LastTrouble = trouble;
}

void SupervisedCamera::WorkerEnded(int status) {
  const bool asked = m_Worker.IsStopping();
  const long long ranMs = m_Worker.Ended();
  if (asked) {
    Apply();
    return;
  }
  for (const RingPlan& ring : m_Rings) {
    RingWriter writer = RingWriter::Attach(ring.id);
    if (writer.IsValid())
      writer.SetState(SourceState::kFailed, "The camera's recorder process ended; it is started again");
  }
  Retry(ranMs, DescribeEnd(status));
}

void SupervisedCamera::Tick(std::int64_t nowUs) {
  m_Worker.Expire(nowUs);
  if (m_StartAtUs != 0 && nowUs >= m_StartAtUs && !m_Worker.IsRunning()) Start();
}

std::int64_t SupervisedCamera::NextTickUs() const {
  const std::int64_t expiry = m_Worker.ExpiryUs();
  if (expiry == 0 || m_StartAtUs == 0) return std::max(expiry, m_StartAtUs);
  return std::min(expiry, m_StartAtUs);
}

}  // namespace oculora
