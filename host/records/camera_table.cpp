// Cameras and their profiles in the records.
#include "records/camera_rows.h"

#include <algorithm>

#include "records/database_impl.h"
#include "records/statement.h"
#include "velm/camera.h"

namespace oculora {
namespace {

// One row a profile; a camera without profiles has one row with NULL in the profile columns.
#define CAMERA_COLUMNS                                                                                   \
  "SELECT c.id, c.name, c.video_type, c.source, c.owner_server, c.id_on_server, c.enabled, c.deleting, " \
  "c.stay_on, c.record_seconds, p.profile, p.stream_no, p.fps, p.width, p.height, p.measured_fps "       \
  "FROM cameras c LEFT JOIN camera_profiles p ON p.camera = c.id "

CameraRecord ReadCamera(const Statement& row) {
  CameraRecord camera;
  camera.id = row.Int(0);
  camera.name = row.Text(1);
  camera.videoType = row.Int(2);
  camera.source = row.Text(3);
  camera.ownerNdId = row.Int(4);
  camera.idOnRec = row.Int(5);
  camera.enabled = row.Bool(6);
  camera.deleting = row.Bool(7);
  camera.stayOn = row.Bool(8);
  camera.recordSeconds = row.Int(9);
  return camera;
}

void AddProfile(const Statement& row, CameraRecord& camera) {
  if (row.IsNull(10)) return;
  camera.profiles.push_back({row.Int(10), row.Int(11), row.Int(12), row.Int(13), row.Int(14), row.Int(15)});
}

bool HasControlCharacter(const std::string& text) {
  return std::any_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; });
}

bool IsVideoType(int type) {
  return type == VIDEO_TYPE_MJPEG || type == VIDEO_TYPE_MPEG4 || type == VIDEO_TYPE_H264 || type == VIDEO_TYPE_MXPEG ||
         type == VIDEO_TYPE_H264_PLUS;
}

constexpr char kRecordLengths[] = "recordings are files of 10 to 3600 seconds";

bool IsRecordLength(int seconds) {
  return seconds == 0 || (seconds >= kMinRecordSeconds && seconds <= kMaxRecordSeconds);
}

// What is wrong with a camera, or an empty text. Ranges of ids and streams are those that name a frame ring.
std::string CheckCamera(const CameraRecord& camera) {
  if (camera.name.empty() || camera.name.size() > 128 || HasControlCharacter(camera.name)) {
    return "a camera's name has 1 to 128 characters, none of them a control character";
  }
  if (camera.id < 0 || camera.id > 262143) return "a camera's id is 1 to 262143";
  if (!IsVideoType(camera.videoType)) return "unknown video type " + std::to_string(camera.videoType);
  if (HasControlCharacter(camera.source)) return "a camera's source has no control characters";
  if (camera.ownerNdId < 0 || camera.idOnRec < 0) return "ids of servers and of their cameras are not negative";
  if (!IsRecordLength(camera.recordSeconds)) return kRecordLengths;
  for (const ProfileRecord& profile : camera.profiles) {
    if (profile.profile < 0 || profile.profile > 2) return "a profile is 0 (high), 1 (balanced) or 2 (mobile)";
    if (profile.streamNo < 0 || profile.streamNo > 15) return "a stream number is 0 to 15";
    if (profile.fps < 0 || profile.width < 0 || profile.height < 0) return "rates and sizes are not negative";
  }
  return {};
}

bool InsertProfiles(DatabaseImpl& database, int camera, const std::vector<ProfileRecord>& profiles) {
  for (const ProfileRecord& profile : profiles) {
    Statement insert(database,
                     "INSERT INTO camera_profiles (camera, profile, stream_no, fps, width, height) "
                     "VALUES (?, ?, ?, ?, ?, ?)");
    insert.Bind(camera).Bind(profile.profile).Bind(profile.streamNo);
    insert.Bind(profile.fps).Bind(profile.width).Bind(profile.height);
    if (!insert.Run()) return false;
  }
  return true;
}

}  // namespace

ProfileRecord CameraRecord::MobileProfile() const {
  for (const ProfileRecord& record : profiles) {
    if (record.profile == kMobileProfile) return record;
  }
  return {};
}

std::optional<CameraRecord> Database::LoadCamera(int id) {
  Statement select(*m_Impl, CAMERA_COLUMNS "WHERE c.id = ?");
  select.Bind(id);
  if (!select.Row()) return std::nullopt;
  CameraRecord camera = ReadCamera(select);
  do {
    AddProfile(select, camera);
  } while (select.Row());
  if (select.Failed()) return std::nullopt;
  return camera;
}

std::vector<CameraRecord> Database::ListCameras() {
  std::vector<CameraRecord> cameras;
  Statement select(*m_Impl, CAMERA_COLUMNS "ORDER BY c.id, p.profile");
  while (select.Row()) {
    if (cameras.empty() || cameras.back().id != select.Int(0)) cameras.push_back(ReadCamera(select));
    AddProfile(select, cameras.back());
  }
  return cameras;
}

std::optional<int> InsertCameraRow(DatabaseImpl& database, const CameraRecord& camera) {
  if (std::string wrong = CheckCamera(camera); !wrong.empty()) {
    database.lastError = std::move(wrong);
    return std::nullopt;
  }
  {
    Statement taken(database, "SELECT id, name FROM cameras WHERE id = ? OR name = ?");
    taken.Bind(camera.id).Bind(camera.name);
    if (taken.Row()) {
      database.lastError = "camera " + std::to_string(taken.Int(0)) + " \"" + taken.Text(1) + "\" exists already";
      return std::nullopt;
    }
  }
  Statement insert(database, "INSERT INTO cameras VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
  if (camera.id == 0) {
    insert.BindNull();
  } else {
    insert.Bind(camera.id);
  }
  insert.Bind(camera.name).Bind(camera.videoType).Bind(camera.source).Bind(camera.ownerNdId).Bind(camera.idOnRec);
  insert.Bind(camera.enabled).Bind(camera.deleting).Bind(camera.stayOn).Bind(camera.recordSeconds);
  if (!insert.Run()) return std::nullopt;
  const int id = static_cast<int>(sqlite3_last_insert_rowid(database.connection));
  if (!InsertProfiles(database, id, camera.profiles)) return std::nullopt;
  return id;
}

bool ChangeRemoteCameraRow(DatabaseImpl& database, const CameraRecord& camera) {
  if (std::string wrong = CheckCamera(camera); !wrong.empty()) {
    database.lastError = std::move(wrong);
    return false;
  }
  Statement update(database,
                   "UPDATE cameras SET name = ?, video_type = ?, enabled = ? WHERE id = ? AND owner_server = ?");
  update.Bind(camera.name).Bind(camera.videoType).Bind(camera.enabled).Bind(camera.id).Bind(camera.ownerNdId);
  if (!update.Run() || !database.ChangedSomething("camera " + std::to_string(camera.id))) return false;
  Statement clear(database, "DELETE FROM camera_profiles WHERE camera = ?");
  return clear.Bind(camera.id).Run() && InsertProfiles(database, camera.id, camera.profiles);
}

bool DeleteCameraRow(DatabaseImpl& database, int id) {
  {
    Statement recorded(database, "SELECT count(*) FROM events WHERE camera = ?");
    if (recorded.Bind(id).Row() && recorded.Int(0) > 0) {
      database.lastError = "camera " + std::to_string(id) + " has " + std::to_string(recorded.Int(0)) +
                           " recordings; they must be removed first";
      return false;
    }
  }
  Statement remove(database, "DELETE FROM cameras WHERE id = ?");
  return remove.Bind(id).Run() && database.ChangedSomething("camera " + std::to_string(id));
}

std::optional<int> Database::AddCamera(const CameraRecord& camera) {
  Transaction transaction(*m_Impl);
  if (!transaction.IsOpen()) return std::nullopt;
  const std::optional<int> id = InsertCameraRow(*m_Impl, camera);
  return id && transaction.Commit() ? id : std::nullopt;
}

bool Database::RemoveCamera(int id) { return DeleteCameraRow(*m_Impl, id); }

bool Database::SetCameraEnabled(int id, bool enabled) {
  Statement update(*m_Impl, "UPDATE cameras SET enabled = ? WHERE id = ?");
  return update.Bind(enabled).Bind(id).Run() && m_Impl->ChangedSomething("camera " + std::to_string(id));
}

bool Database::MarkCameraDeleting(int id) {
  Statement update(*m_Impl, "UPDATE cameras SET deleting = 1, enabled = 0, record_seconds = 0 WHERE id = ?");
  return update.Bind(id).Run() && m_Impl->ChangedSomething("camera " + std::to_string(id));
}

bool Database::SetCameraRecording(int id, int seconds) {
  if (!IsRecordLength(seconds)) {
    m_Impl->lastError = kRecordLengths;
    return false;
  }
  Statement update(*m_Impl, "UPDATE cameras SET record_seconds = ? WHERE id = ?");
  return update.Bind(seconds).Bind(id).Run() && m_Impl->ChangedSomething("camera " + std::to_string(id));
}

bool Database::SetMeasuredFps(int id, int fps) {
  Statement update(*m_Impl, "UPDATE camera_profiles SET measured_fps = ? WHERE camera = ? AND fps = 0");
  return update.Bind(fps).Bind(id).Run();
}

}  // namespace oculora
