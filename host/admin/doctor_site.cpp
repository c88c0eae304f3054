// Checks of the site.
#include "admin/doctor_site.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "admin/camera_source.h"
#include "admin/camera_state.h"
#include "velm/process.h"

namespace oculora {
namespace {

constexpr char kWorkDir[] = "/tmp/ndcam";

std::string CameraText(const CameraRecord& camera) {
  return "camera " + std::to_string(camera.id) + " \"" + camera.name + "\"";
}

// A directory that must be ours and, when `mode` has bits of others, must not be theirs to enter.
void CheckDirectory(Findings& findings, const char* path, mode_t forbidden) {
  struct stat info {};
  const std::string name = path;
  if (lstat(path, &info) != 0) {
    NoteFailure(findings, name + ": " + std::strerror(errno), "run \"oculora init\"");
  } else if (!S_ISDIR(info.st_mode)) {
    NoteFailure(findings, name + " is no directory", "move it away and run \"oculora init\"");
  } else if (info.st_uid != geteuid()) {
    NoteFailure(findings, name + " belongs to another user", "run everything as the same user, or chown it");
  } else if (access(path, R_OK | W_OK | X_OK) != 0) {
    NoteFailure(findings, name + " cannot be written", "chmod u+rwx " + name);
  } else if ((info.st_mode & forbidden) != 0) {
    NoteFailure(findings, name + " is open to other users", "chmod go-rwx " + name);
  } else {
    NoteOk(findings, name);
  }
}

void CheckPrivateFile(Findings& findings, const std::string& path) {
  struct stat info {};
  if (stat(path.c_str(), &info) != 0 || (info.st_mode & 077) == 0) return;
  NoteWarning(findings, path + " can be read by other users of this machine", "chmod 600 " + path);
}

void CheckCamera(Findings& findings, const CameraState& state, bool recorderRuns) {
  const CameraRecord& camera = state.camera;
  std::string error;
  if (camera.ownerNdId == 0 && !NormaliseSource(camera.source, &error)) {
    NoteFailure(findings, CameraText(camera), error);
  } else if (recorderRuns && state.state == "off") {
    NoteFailure(findings, CameraText(camera) + " has no frame ring", std::string("see ") + kLogPath);
  } else if (state.state == "failed") {
    NoteWarning(findings, CameraText(camera) + " fails", state.reason);
  } else {
    NoteOk(findings, CameraText(camera) + " is " + state.state);
  }
  // A remux ends by itself a minute or two after its last viewer has left without a word.
  constexpr long kLongestUntouched = 120;
  if (state.remux && state.remux->untouchedSeconds > kLongestUntouched) {
    NoteWarning(
        findings,
        CameraText(camera) + " is turned into HLS that nobody has fetched for " +
            std::to_string(state.remux->untouchedSeconds) + " s",
        "its process should have ended by itself; end it with \"kill " + std::to_string(state.remux->pid) + "\"");
  }
}

}  // namespace

void CheckDirectories(Findings& findings) {
  CheckDirectory(findings, kVarDir, 077);
  CheckDirectory(findings, kEtcDir, 022);
  CheckDirectory(findings, kStreamKeyDir, 077);
  if (access("/tmp", W_OK | X_OK) != 0) NoteFailure(findings, "/tmp cannot be written", "chmod 1777 /tmp");
  if (access(kWorkDir, F_OK) == 0) CheckDirectory(findings, kWorkDir, 077);
  CheckPrivateFile(findings, kRecordsPath);
  CheckPrivateFile(findings, std::string(kStreamKeyDir) + "/rtsp_key");
}

std::optional<std::vector<CameraRecord>> CheckRecords(Findings& findings) {
  std::string error;
  auto records = Database::Open(Database::Mode::kReadWrite, &error);
  if (!records) {
    NoteFailure(findings, "the records cannot be used", error);
    return std::nullopt;
  }
  auto cameras = records->ListCameras();
  const auto users = records->ListUsers();
  if (records->IsUnreadable()) {
    NoteFailure(findings, "the records cannot be read", records->LastError());
    return std::nullopt;
  }
  const std::string text =
      "the records hold " + std::to_string(cameras.size()) + " cameras and " + std::to_string(users.size()) + " users";
  if (users.empty()) {
    NoteWarning(findings, text, "nobody can log in; add someone with \"oculora user add\"");
  } else if (cameras.empty()) {
    NoteWarning(findings, text, "add one with \"oculora camera add\"");
  } else {
    NoteOk(findings, text);
  }
  return cameras;
}

void CheckCameras(Findings& findings, const std::vector<CameraRecord>& cameras) {
  const bool recorderRuns = ProcAliveByPidFile(kRecorderPidPath);
  NoteOk(findings,
         recorderRuns ? "the recorder is running" : "the recorder is not running; \"oculora serve\" starts it");
  for (const CameraState& state : ObserveCameras(cameras, recorderRuns, 0)) CheckCamera(findings, state, recorderRuns);
}

}  // namespace oculora
