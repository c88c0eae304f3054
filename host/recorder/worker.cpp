// The process of one camera: connects when someone watches, and keeps its rings fed.
#include "recorder/worker.h"

#include <sys/prctl.h>
#include <velm/camera.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "recorder/av/quiet_log.h"
#include "recorder/clock.h"
#include "recorder/frames/frame_format.h"
#include "recorder/recorder_log.h"
#include "recorder/sources/failure.h"
#include "recorder/sources/source.h"
#include "recorder/sources/wait.h"
#include "recorder/stop_signal.h"

namespace oculora {
namespace {

constexpr std::int64_t kSecondUs = 1000000;
constexpr std::int64_t kUnwatchedUs = 10 * kSecondUs;  // a camera nobody watched for so long is let go
// Packets without a usable picture for so long mean trouble; longer than groups of pictures are.
constexpr std::int64_t kNothingUsableUs = 30 * kSecondUs;
constexpr std::int64_t kVisitUs = 30 * kSecondUs;
constexpr std::int64_t kStoreEveryUs = 60 * kSecondUs;  // a rate that changes all the time must not wear the disk
constexpr int kNotingPatienceMs = 100;                  // pictures do not wait for the records
constexpr std::int64_t kRetrySliceUs = kSecondUs / 4;

}  // namespace

Worker::Worker(CameraRecord camera, CameraRings rings) : m_Camera(std::move(camera)), m_Rings(std::move(rings)) {
  for (const ProfileRecord& profile : m_Camera.profiles) {
    if (profile.fps > 0) continue;
    m_WantsRate = true;
    m_KnownRate = profile.measuredFps;
  }
  const bool needsRate = m_WantsRate && m_Camera.videoType == VIDEO_TYPE_H264;
  if (needsRate || m_Camera.videoType == VIDEO_TYPE_MXPEG) m_StrangeUntilUs = MonotonicUs() + kVisitUs;
}

void Worker::Run() {
  while (!StopRequested()) {
    KickWatchdog();
    if (!IsWanted()) {
      m_Rings.SetState(SourceState::kIdle, "");
      m_Backoff.Reset();
      m_Rings.WaitForViewer();
      continue;
    }
    const std::string reason = Serve();
    if (StopRequested() || reason.empty()) continue;
    const std::int64_t ranUs = m_StreamingSinceUs == 0 ? 0 : MonotonicUs() - m_StreamingSinceUs;
    NoteFailure(reason);
    WaitForRetry(m_Backoff.NextDelayMs(ranUs / 1000));
  }
  m_Rings.SetState(SourceState::kIdle, "");
}

bool Worker::IsWanted() const { return m_Camera.stayOn || m_Rings.IsWatched(kUnwatchedUs) || IsStrange(); }

// Some cameras are visited once before anybody watches: already the first viewer of an HLS stream needs the frame rate,
// and a view of an MxPEG camera begins with the newest key picture that there is.
bool Worker::IsStrange() const {
  if (MonotonicUs() >= m_StrangeUntilUs) return false;
  return m_Camera.videoType == VIDEO_TYPE_MXPEG ? !m_SawPicture : m_KnownRate == 0;
}

// One connection, from opening to its end. Why it ended; empty when nobody watches any more or a stop was asked for.
std::string Worker::Serve() {
  m_StreamingSinceUs = 0;
  m_Rings.SetState(SourceState::kConnecting, m_LastReason);
  std::string reason;
  const AVCodecID expected = CodecOfVideoType(m_Camera.videoType);
  const auto format = MakeFrameFormat(m_Camera.videoType, reason);
  if (!format) return reason;
  const auto source = MakeSource(m_Camera.source, expected, m_Camera.MobileProfile().fps, reason);
  if (!source || !source->Open(reason)) return reason;
  const AVCodecParameters& stream = source->Parameters();
  if (stream.codec_id != expected) return WrongCodec(stream.codec_id, expected);
  if (!format->Start(stream, source->TimeBase(), m_Rings, reason)) return reason;
  return Copy(*source, *format);
}

std::string Worker::Copy(Source& source, FrameFormat& format) {
  const AvPtr<AVPacket> packet(av_packet_alloc());
  if (!packet) return "Out of memory";
  std::string reason;
  m_Rate.Reset();
  std::int64_t lastGoodUs = MonotonicUs();
  bool tooLarge = false;  // one was, since the last that was written
  while (IsWanted()) {
    if (!source.Read(*packet, reason)) return reason;
    const FrameResult result = format.Write(*packet, WallClockUs(), m_Rings);
    tooLarge = result == FrameResult::kTooLarge || (tooLarge && result != FrameResult::kWritten);
    const std::int64_t nowUs = MonotonicUs();
    if (result == FrameResult::kWritten) {
      if (m_StreamingSinceUs == 0) NoteStreaming();
      MeasureRate(nowUs);
      if (!m_ReorderingNoted && format.SawReordering()) NoteReordering();
      lastGoodUs = nowUs;
      continue;
    }
    if (result == FrameResult::kTooLarge && !m_TooLargeNoted) NoteTooLarge();
    if (nowUs - lastGoodUs > kNothingUsableUs) {
      return tooLarge ? "The camera's pictures are larger than 4 MiB" : "No usable picture in the stream";
    }
  }
  return {};
}

void Worker::NoteStreaming() {
  m_StreamingSinceUs = MonotonicUs();
  m_SawPicture = true;
  m_Rings.SetState(SourceState::kStreaming, "");
  if (!m_LastReason.empty()) LogInfo("camera %d \"%s\" is back", m_Camera.id, m_Camera.name.c_str());
  m_LastReason.clear();
}

// HLS counts time in frames, so it must know their rate where nobody declared one. Every stream of the camera gets the
// same frames.
void Worker::MeasureRate(std::int64_t nowUs) {
  if (!m_WantsRate) return;
  const double rate = m_Rate.Note(nowUs);
  if (rate <= 0 || nowUs < m_StoreAtUs) return;
  const int fps = WholeRate(rate, m_KnownRate);
  if (fps == m_KnownRate) return;
  m_StoreAtUs = nowUs + kStoreEveryUs;
  std::string error;
  auto records = Database::Open(Database::Mode::kReadWrite, &error, kRecordsPath, kNotingPatienceMs);
  if (records && records->SetMeasuredFps(m_Camera.id, fps)) {
    m_KnownRate = fps;
    return;
  }
  if (records) error = records->LastError();
  LogError("camera %d \"%s\" sends %d frames a second, which cannot be noted: %s", m_Camera.id, m_Camera.name.c_str(),
           fps, error.c_str());
}

// HLS counts its time in frames as they come. Once a worker: a camera on demand connects many times a day.
void Worker::NoteReordering() {
  m_ReorderingNoted = true;
  LogError(
      "camera %d \"%s\" sends B-frames; HLS needs a stream without them: switch them off in the camera (its baseline "
      "profile has none) or use MJPEG",
      m_Camera.id, m_Camera.name.c_str());
}

// Once a worker as well. Other pictures may flow meanwhile.
void Worker::NoteTooLarge() {
  m_TooLargeNoted = true;
  LogError("camera %d \"%s\" sends pictures larger than 4 MiB; they are left out", m_Camera.id, m_Camera.name.c_str());
}

void Worker::NoteFailure(const std::string& reason) {
  m_Rings.SetState(SourceState::kFailed, reason);
  if (reason != m_LastReason) LogError("camera %d \"%s\": %s", m_Camera.id, m_Camera.name.c_str(), reason.c_str());
  m_LastReason = reason;
}

void Worker::WaitForRetry(int delayMs) {
  const std::int64_t dueUs = MonotonicUs() + std::int64_t{delayMs} * 1000;
  while (IsWanted() && MonotonicUs() < dueUs) {
    if (!WaitUntilUs(std::min(dueUs, MonotonicUs() + kRetrySliceUs))) return;
  }
}

int RunWorker(int camId) {
  InstallStopSignals();
  QuietFfmpegLog();
  char name[16];
  std::snprintf(name, sizeof(name), "recorder-%d", camId);
  prctl(PR_SET_NAME, name);

  std::optional<CameraRecord> camera;
  {
    std::string error;
    auto records = Database::Open(Database::Mode::kReadOnly, &error);
    if (records) {
      camera = records->LoadCamera(camId);
      error = records->LastError();
    }
    if (!camera) {
      LogError("camera %d cannot be served: %s", camId, error.empty() ? "there is no such camera" : error.c_str());
      return 1;
    }
  }
  CameraRings rings;
  if (!rings.Attach(*camera)) {
    LogError("camera %d cannot be served: its ring is missing", camId);
    return 1;
  }
  Worker(std::move(*camera), std::move(rings)).Run();
  return 0;
}

}  // namespace oculora
