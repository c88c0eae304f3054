// The host's records: cameras, users, sessions, privileges, servers, settings, in one SQLite file.
//
// Request processes open it read-only, once, on first use; the admin command, the recorder and log-in open it for
// writing. Records of an earlier version are brought up to date by whoever meets them first. All operations return
// false (or an empty optional) and set the last error on failure; none throws. A Database belongs to one thread. Waits
// at most 2 s for another writer unless told otherwise.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace oculora {

// Where the records and everything else of a site stand.
constexpr char kVarDir[] = "/var/packages/Oculora/var";
constexpr char kEtcDir[] = "/var/packages/Oculora/etc";
constexpr char kRecordingsDir[] = "/var/packages/Oculora/var/recordings";
constexpr char kRecordsPath[] = "/var/packages/Oculora/var/records.db";
constexpr char kLogPath[] = "/var/packages/Oculora/var/oculora.log";
constexpr char kRecorderPidPath[] = "/var/packages/Oculora/var/recorder.pid";
constexpr char kStreamKeyDir[] = "/var/packages/Oculora/target/@rtsp_info";

constexpr char kAppPrivilege[] = "VELM.QRT.Oculora";
constexpr int kMobileProfile = 2;
constexpr int kMinRecordSeconds = 10;
constexpr int kMaxRecordSeconds = 3600;

struct ProfileRecord {
  int profile = 0;  // 0 high, 1 balanced, 2 mobile
  int streamNo = 0;
  int fps = 0, width = 0, height = 0;  // as declared; 0 unknown
  int measuredFps = 0;                 // by the recorder, where no fps was declared; 0: not yet
  int KnownFps() const { return fps > 0 ? fps : measuredFps; }  // 0: unknown
};

struct CameraRecord {
  int id = 0;  // 0 on adding: the next free one
  std::string name;
  int videoType = 0;   // CAM_VIDEO_TYPE
  std::string source;  // URL, file or "test:"; may hold a password: never shown to viewers
  int ownerNdId = 0;   // 0: this host
  int idOnRec = 0;
  bool enabled = true;
  bool deleting = false;
  bool stayOn = false;    // runs even when nobody watches
  int recordSeconds = 0;  // recorded all the time, in files of this length; 0: not
  std::vector<ProfileRecord> profiles;

  ProfileRecord MobileProfile() const;  // what live viewers use; as constructed when there is none
};

struct UserRecord {
  int uid = 0;  // above 1024 for people
  std::string name;
  bool admin = false;
  bool appPrivilege = true;      // holds kAppPrivilege
  std::uint32_t operations = 0;  // bit N: operation N (1 live, 2 playback)
};

struct SessionRecord {
  std::string id;
  UserRecord user;
};

struct ServerRecord {
  int id = 0;
  std::string name, url, secret;
};

class Database {
 public:
  // Writers check the schema's version at once, readers with their first question. kCreate makes file and schema too.
  // kForeign reads records of another host, and never brings them up to date.
  enum class Mode { kReadOnly, kReadWrite, kCreate, kForeign };

  ~Database();
  Database(Database&&) noexcept;
  Database& operator=(Database&&) noexcept;

  // `error` gets a sentence a person can act on. Waits at most `patienceMs` for another writer, here and later.
  static std::optional<Database> Open(Mode mode, std::string* error, const char* path = kRecordsPath,
                                      int patienceMs = kPatienceMs);
  // Of requests and commands: a commit may take seconds on a disk busy with recordings, and the page waits for ten.
  static constexpr int kPatienceMs = 8000;
  // Of the recorder, which has other things to do and comes again.
  static constexpr int kRecorderPatienceMs = 2000;

  const std::string& LastError() const;  // a sentence a person can act on; empty before the first failure
  bool IsUnreadable() const;  // an operation failed because the records as a whole are missing, damaged or locked

  // Grows with every change committed by another connection; for pollers.
  std::int64_t DataVersion();

  std::optional<CameraRecord> LoadCamera(int id);  // one SELECT, profiles included
  std::vector<CameraRecord> ListCameras();
  std::optional<int> AddCamera(const CameraRecord& camera);  // the id; empty: id or name taken, value off
  bool RemoveCamera(int id);
  bool SetCameraEnabled(int id, bool enabled);
  bool MarkCameraDeleting(int id);               // it is neither shown nor recorded from now on
  bool SetCameraRecording(int id, int seconds);  // kMinRecordSeconds to kMaxRecordSeconds; 0: off
  // Notes the measured rate in the camera's profiles that declare none. True also when there is no such profile.
  bool SetMeasuredFps(int id, int fps);

  std::optional<UserRecord> FindUser(const std::string& name);
  std::optional<UserRecord> FindUserByUid(int uid);
  std::vector<UserRecord> ListUsers();
  // Or replaces password and rights of that name, which ends its sessions. The uid is chosen here.
  bool AddUser(const UserRecord& user, const std::string& passwordHash);
  std::optional<std::string> PasswordHash(const std::string& name);

  std::optional<SessionRecord> FindSession(const std::string& id, std::int64_t nowSeconds);  // live ones only
  bool AddSession(const std::string& id, int uid, std::int64_t nowSeconds, std::int64_t expiresSeconds);
  bool RemoveSession(const std::string& id);
  bool RemoveExpiredSessions(std::int64_t nowSeconds);

  // The brake on guessing passwords: counts an attempt from `address` as failed before it is made, so that attempts
  // side by side count too. 0: go on; else the seconds to wait (after kFreeAttempts in a row, one a minute); empty on
  // failure. A log-in that succeeds forgets the count.
  static constexpr int kFreeAttempts = 10;
  std::optional<int> BeginLogin(const std::string& address, std::int64_t nowSeconds);
  bool ForgetLoginFailures(const std::string& address);

  // More about servers stands in records/servers.h.
  bool AddServer(const ServerRecord& server);
  std::vector<ServerRecord> ListServers();

  std::string GetSetting(const std::string& name, const std::string& defaultValue);
  bool SetSetting(const std::string& name, const std::string& value);

 private:
  friend class EventTable;
  friend class ServerTable;
  friend class StorageTable;
  friend class TaskTable;
  struct Impl;
  explicit Database(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> m_Impl;
};

// The one read-only database of a request process, opened on first use; null when it cannot be opened. Not
// thread-safe: request processes have one thread.
Database* RequestDatabase();
// Why this request could not read the records; empty when it did, or never tried.
std::string RequestDatabaseError();

}  // namespace oculora
