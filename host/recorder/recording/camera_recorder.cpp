// Records one camera: which takes there are, and giving each of them the camera's frames.
#include "recorder/recording/camera_recorder.h"

#include <velm/camera.h>

#include <algorithm>
#include <cinttypes>
#include <utility>

#include "recorder/clock.h"
#include "recorder/recorder_log.h"
#include "recorder/recording/disk_room.h"
#include "recorder/recording/event_files.h"
#include "recorder/recording/housekeeping.h"
#include "shm/ring_writer.h"

namespace oculora {
namespace {

constexpr std::int64_t kSecondUs = 1000000;
constexpr std::int64_t kReadEveryUs = kSecondUs;
constexpr std::int64_t kDiskEveryUs = 3 * kSecondUs;
constexpr std::int64_t kDiskRetryUs = 10 * kSecondUs;
constexpr std::int64_t kRowRetryUs = 5 * kSecondUs;
constexpr std::int64_t kFlushEveryUs = 5 * kSecondUs;
constexpr std::int64_t kSilentUs = 10 * kSecondUs;
constexpr std::int64_t kRequestUs = 30 * kSecondUs;
constexpr std::int64_t kLossEveryUs = 60 * kSecondUs;
constexpr std::int32_t kSlackSeconds = 30;  // files end at a key frame

std::int32_t SecondsOf(std::int64_t wantedUs) {
  const std::int64_t longest = kMaxRecordSeconds;
  const std::int64_t seconds = wantedUs > 0 ? std::min(wantedUs / kSecondUs, longest) : longest;
  return static_cast<std::int32_t>(seconds) + kSlackSeconds;
}

}  // namespace

CameraRecorder::CameraRecorder(CameraRecord camera, FrameFeed& feed) : m_Camera(std::move(camera)), m_Feed(feed) {}

bool CameraRecorder::IsContinuous() const {
  return m_Camera.recordSeconds > 0 && m_Camera.enabled && !m_Camera.deleting;
}

// --- frames ----------------------------------------------------------------------------------------------------------

void CameraRecorder::Write(const FeedFrame& frame, std::int64_t nowUs) {
  m_LastFrameUs = nowUs;
  m_CameraReason.clear();
  CountLoss(frame);
  if (!m_Trouble.empty()) return;
  const std::vector<std::uint8_t> extra = ExtraFor(frame);
  WriteRequested(frame, extra, nowUs);
  if (IsContinuous() && m_Trouble.empty()) WriteContinuous(frame, extra, nowUs);
  if (frame.key && m_Trouble.empty()) BeginRequests(frame, extra, nowUs);
}

// H.264 has its parameters in the key frames, pictures need none.
std::vector<std::uint8_t> CameraRecorder::ExtraFor(const FeedFrame& frame) const {
  return frame.key && m_Camera.videoType == VIDEO_TYPE_MPEG4 ? m_Feed.Extra() : std::vector<std::uint8_t>();
}

void CameraRecorder::WriteContinuous(const FeedFrame& frame, Bytes extra, std::int64_t nowUs) {
  Take::Offered offered = Take::Offered::kEnds;
  if (m_Continuous) offered = m_Continuous->take.Offer(frame, extra);
  if (offered == Take::Offered::kFailed) {
    return NoteTrouble(DiskTrouble(m_Continuous->take.Writer().Error()), nowUs);
  }
  if (offered == Take::Offered::kGoesOn) return;

  std::unique_ptr<Running> next;
  EventRecord event;
  event.wantedUs = m_Camera.recordSeconds * kSecondUs;
  const Begun begun = Begin(event, frame, extra, nowUs, next);
  if (begun == Begun::kTrouble) return;
  // The old file takes the pictures as long as the records refuse a row for the next.
  if (begun == Begun::kNotNow && offered == Take::Offered::kLongEnough) {
    if (m_Continuous->take.Write(frame, extra) == Take::Offered::kGoesOn) return;
  }
  End(m_Continuous);
  m_Continuous = std::move(next);
}

void CameraRecorder::WriteRequested(const FeedFrame& frame, Bytes extra, std::int64_t nowUs) {
  for (auto& running : m_Requested) {
    const Take::Offered offered = running->take.Offer(frame, extra);
    if (offered == Take::Offered::kGoesOn) continue;
    if (offered == Take::Offered::kFailed) return NoteTrouble(DiskTrouble(running->take.Writer().Error()), nowUs);
    End(running);
  }
  std::erase(m_Requested, nullptr);
}

void CameraRecorder::BeginRequests(const FeedFrame& frame, Bytes extra, std::int64_t nowUs) {
  std::vector<Request> waiting;
  for (const Request& request : std::exchange(m_Requests, {})) {
    EventRecord event;
    event.id = request.eventId;
    event.cause = EventCause::kRequest;
    event.wantedUs = request.wantedUs;
    std::unique_ptr<Running> running;
    if (!m_Trouble.empty() || Begin(event, frame, extra, nowUs, running) == Begun::kNotNow) {
      waiting.push_back(request);
    } else if (running) {
      m_Requested.push_back(std::move(running));
    }
  }
  m_Requests = std::move(waiting);
}

// Row, then directories, then file, then the first picture.
CameraRecorder::Begun CameraRecorder::Begin(EventRecord event, const FeedFrame& frame, Bytes extra, std::int64_t nowUs,
                                            std::unique_ptr<Running>& running) {
  auto writer = MakeFileWriter(m_Camera.videoType, SecondsOf(event.wantedUs), m_Camera.MobileProfile().KnownFps());
  if (!writer->CanBeginWith(frame) || nowUs < m_BeginAtUs) return Begun::kNotNow;
  event.camId = m_Camera.id;
  event.state = EventState::kRecording;
  event.videoType = m_Camera.videoType;
  event.startUs = frame.timestampUs;
  const bool asked = event.id != 0;
  if (!WriteRow(event)) {
    if (!asked) m_BeginAtUs = nowUs + kRowRetryUs;  // a request may have been taken back, and that is all
    return Begun::kNotNow;
  }
  std::string reason;
  // Again, because housekeeping may have removed a directory that was empty.
  bool open = false;
  for (int attempt = 0; attempt < 2 && !open; ++attempt) {
    open = MakeDirectoriesFor(event.path) && writer->Open(FullPath(event.path), frame, extra, reason);
  }
  if (!open) {
    const int code = errno;
    if (reason.empty()) reason = DiskTrouble(code);
    RemoveRow(event, reason);
    NoteTrouble(reason, nowUs);
    return Begun::kTrouble;
  }
  running = std::make_unique<Running>(Running{Take(event, std::move(writer)), nowUs + kFlushEveryUs, nullptr});
  if (running->take.Write(frame, extra) == Take::Offered::kFailed) {
    const std::string trouble = DiskTrouble(running->take.Writer().Error());
    m_Jobs.Finish(running->take.End(), trouble);
    running.reset();
    NoteTrouble(trouble, nowUs);
    return Begun::kTrouble;
  }
  m_Jobs.MakeThumbnail(event, frame.data, m_Feed.Extra());
  return Begun::kYes;
}

// Sets id and path.
bool CameraRecorder::WriteRow(EventRecord& event) {
  Database* records = m_Records.Get();
  if (records == nullptr) return false;
  EventTable table(*records);
  const char* extension = RecordingExtension(event.videoType);
  if (event.id != 0) {
    event.path = table.Begin(event.id, event.startUs, event.videoType, extension);
  } else if (const auto id = table.Add(event, extension)) {
    event.id = *id;
    event.path = EventPath(event.camId, event.startUs, *id, extension);
  }
  return !event.path.empty();
}

void CameraRecorder::RemoveRow(const EventRecord& event, const std::string& reason) {
  Database* records = m_Records.Get();
  if (records == nullptr) return;  // the next recovery finds it
  EventTable table(*records);
  if (event.cause == EventCause::kRequest) {
    table.Fail(event.id, reason);
  } else {
    table.Remove(event.id);
  }
}

void CameraRecorder::End(std::unique_ptr<Running>& running) {
  if (!running) return;
  m_Jobs.Finish(running->take.End(), m_Trouble);
  running.reset();
}

void CameraRecorder::EndAll() {
  End(m_Continuous);
  for (auto& running : m_Requested) End(running);
  m_Requested.clear();
}

// --- what is wanted --------------------------------------------------------------------------------------------------

void CameraRecorder::Tick(std::int64_t nowUs) {
  if (nowUs >= m_ReadAtUs) {
    m_ReadAtUs = nowUs + kReadEveryUs;
    if (m_Records.Changed()) ReadRecords(nowUs);
    if (m_LastFrameUs == 0) m_LastFrameUs = nowUs;
    if (nowUs - m_LastFrameUs >= kSilentUs) EndAll();
    LookAtCamera();
    GiveUpRequests(nowUs);
    StoreState();
    if (m_LossToldUs == 0 || nowUs - m_LossToldUs >= kLossEveryUs) TellLoss(nowUs);
  }
  if (nowUs >= m_DiskAtUs) CheckDisk(nowUs);
  if (m_Continuous) Flush(*m_Continuous, nowUs);
  for (auto& running : m_Requested) Flush(*running, nowUs);
}

void CameraRecorder::ReadRecords(std::int64_t nowUs) {
  Database* records = m_Records.Get();
  if (records == nullptr) return;
  const auto camera = records->LoadCamera(m_Camera.id);
  const auto rows = EventTable(*records).ListUnfinished(m_Camera.id);
  m_ReserveMb = NumberSetting(*records, kReserveSetting, kReserveDefault);
  if (records->IsUnreadable()) return;
  if (camera) {
    m_Camera.recordSeconds = camera->recordSeconds;
    m_Camera.enabled = camera->enabled;
    m_Camera.deleting = camera->deleting;
  } else {
    m_Camera.deleting = true;
  }
  m_KnowsRecords = true;
  for (auto& running : m_Requested) {
    const auto row = std::find_if(rows.begin(), rows.end(),
                                  [&](const EventRecord& one) { return one.id == running->take.Event().id; });
    // A row that is being deleted, or gone: so goes what was recorded.
    if (row == rows.end() || row->state != EventState::kRecording) {
      End(running);
    } else {
      running->take.SetWanted(row->wantedUs);
    }
  }
  std::erase(m_Requested, nullptr);
  if (m_Continuous) m_Continuous->take.SetWanted(m_Camera.recordSeconds * kSecondUs);
  const bool deleted = m_Continuous && std::none_of(rows.begin(), rows.end(), [&](const EventRecord& one) {
                         return one.id == m_Continuous->take.Event().id && one.state == EventState::kRecording;
                       });
  if (deleted || !IsContinuous()) End(m_Continuous);
  std::erase_if(m_Requests, [&](const Request& request) {
    return std::none_of(rows.begin(), rows.end(), [&](const EventRecord& one) { return one.id == request.eventId; });
  });
  for (const EventRecord& row : rows) {
    if (row.state == EventState::kRequested) AddRequest(row, nowUs);
  }
}

void CameraRecorder::AddRequest(const EventRecord& row, std::int64_t nowUs) {
  for (Request& request : m_Requests) {
    if (request.eventId != row.id) continue;
    request.wantedUs = row.wantedUs;
    return;
  }
  const std::int64_t ageUs = std::clamp<std::int64_t>(WallClockUs() - row.startUs, 0, kRequestUs);
  m_Requests.push_back({row.id, row.wantedUs, nowUs + kRequestUs - ageUs});
}

bool CameraRecorder::FailRequest(const Request& request, const std::string& reason) {
  Database* records = m_Records.Get();
  return records != nullptr && (EventTable(*records).Fail(request.eventId, reason) || !records->IsUnreadable());
}

void CameraRecorder::GiveUpRequests(std::int64_t nowUs) {
  std::erase_if(m_Requests, [&](const Request& request) {
    if (!m_Camera.enabled || m_Camera.deleting) return FailRequest(request, "the camera is switched off");
    if (!m_Trouble.empty()) return FailRequest(request, m_Trouble);
    if (request.wantedUs == 1) return FailRequest(request, "it was ended before the first picture");
    if (nowUs < request.giveUpAtUs) return false;
    return FailRequest(request, m_CameraReason.empty() ? "the camera sent no picture" : m_CameraReason);
  });
}

bool CameraRecorder::IsDone() const {
  return m_KnowsRecords && !IsContinuous() && !m_Continuous && m_Requested.empty() && m_Requests.empty() &&
         m_Jobs.IsIdle();
}

void CameraRecorder::Stop(int timeoutMs) {
  EndAll();
  TellLoss(MonotonicUs());
  m_Jobs.WaitIdle(timeoutMs);
  Database* records = m_Records.Get();
  if (records != nullptr) {
    EventTable(*records).SetCameraState(m_Camera.id, RecordingState::kOff, "", WallClockUs() / kSecondUs);
  }
}

// --- disk and camera -------------------------------------------------------------------------------------------------

// The header and what came since the flush, which ran beside the writing, take no time.
void CameraRecorder::Flush(Running& running, std::int64_t nowUs) {
  if (running.flushed != nullptr) {
    if (!*running.flushed) return;
    running.flushed.reset();
    running.flushAtUs = nowUs + kFlushEveryUs;
    // The next write finds out as well, and tells.
    running.take.Writer().Sync();
  } else if (nowUs >= running.flushAtUs) {
    running.flushed = m_Jobs.Flush(running.take.Event().path);
  }
}

void CameraRecorder::CheckDisk(std::int64_t nowUs) {
  m_DiskAtUs = nowUs + kDiskEveryUs;
  if (!m_KnowsRecords) return;
  const std::string lack = LackOfRoom(m_ReserveMb);
  if (!lack.empty()) return NoteTrouble(lack, nowUs);
  if (m_Trouble.empty()) return;
  LogInfo("camera %d \"%s\" is recorded again", m_Camera.id, m_Camera.name.c_str());
  m_Trouble.clear();
}

// Everything ends; nothing is tried before the disk has been looked at again.
void CameraRecorder::NoteTrouble(const std::string& trouble, std::int64_t nowUs) {
  m_DiskAtUs = nowUs + kDiskRetryUs;
  if (m_Trouble.empty()) {
    LogError("camera %d \"%s\" is not recorded: %s", m_Camera.id, m_Camera.name.c_str(), trouble.c_str());
  }
  m_Trouble = trouble;
  EndAll();
}

// What follows a loss up to the next key frame cannot be shown, so takes leave it out.
void CameraRecorder::CountLoss(const FeedFrame& frame) {
  m_LacksKey = (m_LacksKey || frame.lost > 0) && !frame.key;
  if (m_Continuous || !m_Requested.empty()) m_Lost += frame.lost + (m_LacksKey ? 1 : 0);
}

void CameraRecorder::TellLoss(std::int64_t nowUs) {
  if (m_Lost == 0) return;
  LogError("camera %d \"%s\": pictures were not recorded, because the disk is too slow: %" PRId64, m_Camera.id,
           m_Camera.name.c_str(), m_Lost);
  m_Lost = 0;
  m_LossToldUs = nowUs;
}

// The reason stays while the camera is being tried again.
void CameraRecorder::LookAtCamera() {
  const bool silent = MonotonicUs() - m_LastFrameUs >= kSilentUs;
  if (!silent && (m_Continuous || !m_Requested.empty())) return;
  RingStatus status;
  if (!ReadRingStatus({m_Camera.id, m_Camera.MobileProfile().streamNo, RingKind::kVideo}, status)) return;
  if (status.state == SourceState::kFailed) {
    m_CameraReason = status.reason;
  } else if (m_CameraReason.empty() && silent) {
    m_CameraReason = status.state == SourceState::kStreaming ? "The camera sends no pictures" : "No answer yet";
  }
}

void CameraRecorder::StoreState() {
  const bool recording = m_Continuous || !m_Requested.empty();
  const bool wanted = IsContinuous() || !m_Requests.empty();
  RecordingState state = RecordingState::kOff;
  std::string reason;
  if (!m_Trouble.empty()) {
    state = RecordingState::kFailed;
    reason = m_Trouble;
  } else if (recording) {
    state = RecordingState::kRecording;
  } else if (wanted) {
    state = RecordingState::kWaiting;
    reason = m_CameraReason;
  }
  if (m_State == state && m_StateReason == reason) return;
  Database* records = m_Records.Get();
  if (records == nullptr) return;
  if (!EventTable(*records).SetCameraState(m_Camera.id, state, reason, WallClockUs() / kSecondUs)) return;
  m_State = state;
  m_StateReason = reason;
}

}  // namespace oculora
