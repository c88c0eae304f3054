// One camera under supervision: its rings, its worker and its recording process, and when to start these again.
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

void SupervisedCamera::SetWanted(std::optional<CameraRecord> camera, bool asked) {
  const bool same = camera && SameSetup(m_Camera, *camera);
  m_Wanted = std::move(camera);
  m_Asked = asked;
  if (!same) m_Recording.Stop();
  if (same) {
    m_Camera.name = m_Wanted->name;
    m_Camera.recordSeconds = m_Wanted->recordSeconds;
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

void SupervisedCamera::Ended(pid_t pid, int status) {
  if (pid == m_Worker.Pid()) {
    WorkerEnded(status);
  } else {
    RecordingEnded(status);
  }
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

// One that has recorded everything ends with 0, and is started when there is something again.
void SupervisedCamera::RecordingEnded(int status) {
  const bool asked = m_Recording.IsStopping();
  const long long ranMs = m_Recording.Ended();
  m_Crashed = !asked && status != 0;
  if (asked) return;
  if (!m_Crashed) m_RecordingBackoff.Reset();
  m_RecordAtUs = MonotonicUs() + m_RecordingBackoff.NextDelayMs(ranMs) * 1000LL;
  if (!m_Crashed) return;
  LogError("camera %d \"%s\": its recording is started again: %s", m_Camera.id, m_Camera.name.c_str(),
           DescribeEnd(status).c_str());
}

bool SupervisedCamera::ShouldRecord() const {
  if (!m_Wanted || !SameSetup(m_Camera, *m_Wanted) || m_Rings.empty()) return false;
  return m_Asked || m_Crashed || (m_Camera.recordSeconds > 0 && ShouldRun());
}

void SupervisedCamera::KeepRecording(std::int64_t nowUs) {
  m_Recording.Expire(nowUs);
  if (m_Recording.IsRunning() || nowUs < m_RecordAtUs || !ShouldRecord()) return;
  m_Crashed = false;
  m_RecordAtUs = 0;
  if (!m_Recording.Start(m_Camera.id)) m_RecordAtUs = nowUs + m_RecordingBackoff.NextDelayMs(0) * 1000LL;
}

void SupervisedCamera::Tick(std::int64_t nowUs) {
  KeepRecording(nowUs);
  m_Worker.Expire(nowUs);
  if (m_StartAtUs != 0 && nowUs >= m_StartAtUs && !m_Worker.IsRunning()) Start();
}

std::int64_t SupervisedCamera::NextTickUs() const {
  const std::int64_t recordAtUs = ShouldRecord() && !m_Recording.IsRunning() ? m_RecordAtUs : 0;
  std::int64_t next = 0;
  for (const std::int64_t due : {m_Worker.ExpiryUs(), m_StartAtUs, m_Recording.ExpiryUs(), recordAtUs}) {
    if (due != 0 && (next == 0 || due < next)) next = due;
  }
  return next;
}

}  // namespace oculora
