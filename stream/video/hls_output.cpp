// Serving HLS: the playlist and single slices.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>

#include "slice_files.h"
#include "slice_id.h"
#include "velm/file.h"
#include "velm/relay.h"
#include "velm/writers.h"
#include "videoStreaming.h"
#include "video_unit.h"

namespace {

constexpr char kOutputM3u8[] = "OutputM3u8";
constexpr char kOutputHls[] = "OutputHls";
constexpr char kPlaylistHeader[] = "Content-Type: application/x-mpegURL\r\n\r\n";
constexpr char kSliceHeader[] = "Content-Type: video/MP2T\r\n\r\n";
constexpr char kHostPlaceholder[] = "__HTTPHOST_PREFIX__";
constexpr int kOpenAttempts = 5;
constexpr int kPlaylistPiece = 4096;
constexpr int kSlicePiece = 65536;

int OpenPatiently(const std::string& path) {
  for (int i = 0; i < kOpenAttempts; ++i) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0) return fd;
    sleep(1);  // a remux that has just started has written nothing yet
  }
  return -1;
}

// As many bytes as there are, up to `size`; -1 when reading fails.
int ReadFully(int fd, char* buffer, int size) {
  int count = 0;
  while (count < size) {
    const ssize_t got = read(fd, buffer + count, static_cast<std::size_t>(size - count));
    if (got == 0) break;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return -1;
    count += static_cast<int>(got);
  }
  return count;
}

bool IsAtEnd(int fd, off_t position) {
  struct stat info {};
  return fstat(fd, &info) != 0 || position >= info.st_size || position > INT_MAX;
}

// A slice is read by name, so the name must not lead elsewhere. A missing one may still come.
bool IsRegularOrMissing(const std::string& path) {
  struct stat info {};
  return lstat(path.c_str(), &info) != 0 || S_ISREG(info.st_mode);
}

}  // namespace

int VideoStreamingHandler::GetFileContent(char* buffer, int size, int offset, int& bytesRead, const std::string& path) {
  bytesRead = -1;
  char name[PATH_MAX];
  Strncpy(name, path, sizeof(name));
  const int fd = OpenPatiently(name);
  if (fd < 0) {
    QM_LOG_ALWAYS(__func__, "Fail to open file [%s]\n", name);
    return -1;
  }
  int next = -1;
  if (lseek(fd, offset, SEEK_SET) < 0) {
    QM_LOG_ALWAYS(__func__, "Fail to seek file [%s]\n", name);
  } else {
    bytesRead = ReadFully(fd, buffer, size);
    const off_t position = static_cast<off_t>(offset) + bytesRead;
    if (bytesRead >= 0) next = bytesRead < size || IsAtEnd(fd, position) ? 0 : static_cast<int>(position);
  }
  close(fd);
  return next;
}

void VideoStreamingHandler::OutputM3u8() {
  bool useHttps = false;
  std::string host;
  if (GetCorrectHttpPrefix(useHttps, host) != 0) {
    QM_LOG(LOG_LEVEL_ERROR, "Cam[%d]: Failed to get Nd ip and port.\n", m_CamId);
    return;
  }
  if (m_OwnerNdId != 0) {
    Json::Value info = GetAPIInfo();
    info["cameraId"] = m_CamIdOnRec;
    info["useHttps"] = useHttps;
    info["format"] = "hls";
    info["SliceId"] = "";
    info["HostIp"] = host;
    info["isRedirectCgi"] = 1;
    RelayHls(info, kPlaylistHeader, kOutputM3u8);
    return;
  }
  WritePlaylist((useHttps ? "https://" : "http://") + host);
  fflush(stdout);
}

void VideoStreamingHandler::WritePlaylist(const std::string& hostPrefix) {
  WriteWithHeader output(kPlaylistHeader);
  output.WriteHeader(nullptr);
  int offset = 0;
  do {
    char piece[kPlaylistPiece] = "";
    int bytes = 0;
    offset = GetFileContent(piece, kPlaylistPiece - 1, offset, bytes, m_M3u8Path);
    if (offset < 0) {
      QM_LOG_AS(kOutputM3u8, LOG_LEVEL_ERROR, "Cam[%d]: Failed to get m3u8 content.\n", m_CamId);
      return;
    }
    const std::string text = StringReplaceSymbol(piece, kHostPlaceholder, hostPrefix);
    output.WriteResponse(text.data(), static_cast<int>(text.size()));
    QM_LOG_AS(kOutputM3u8, LOG_LEVEL_INFO, "Write m3u8 file [%s][%s]\n", m_M3u8Path.c_str(), text.c_str());
  } while (offset != 0);
}

void VideoStreamingHandler::OutputHls(const std::string& sliceId) {
  if (sliceId.empty()) {
    QM_LOG(LOG_LEVEL_ERROR, "Cam[%d]: Failed to check slice id.\n", m_CamId);
    return;
  }
  if (m_OwnerNdId != 0) {
    Json::Value info = GetAPIInfo();
    info["cameraId"] = m_CamIdOnRec;
    info["format"] = "hls";
    info["SliceId"] = sliceId;
    info["isRedirectCgi"] = 1;
    RelayHls(info, kSliceHeader, kOutputHls);
    return;
  }
  if (!IsSliceOf(sliceId, m_CamId) || !IsRegularOrMissing(sliceId)) {
    QM_LOG(LOG_LEVEL_ERROR, "Cam[%d]: Failed to check slice id.\n", m_CamId);
    return;
  }
  const bool served = WriteSlice(sliceId);
  fflush(stdout);
  utimes(m_PidFilePath, nullptr);  // keeps the remux alive
  // A slice that does not exist says nothing about which ones are old.
  if (served) RemoveOldSlice(sliceId);
}

// The slice id is the slice's path from the working directory. Whether it could be read.
bool VideoStreamingHandler::WriteSlice(const std::string& sliceId) {
  WriteWithHeader output(kSliceHeader);
  output.WriteHeader(nullptr);
  static char piece[kSlicePiece];
  int offset = 0;
  do {
    int bytes = 0;
    offset = GetFileContent(piece, kSlicePiece, offset, bytes, sliceId);
    if (bytes <= 0) {
      QM_LOG_AS(kOutputHls, LOG_LEVEL_ERROR, "Cam[%d]: Failed to get HLS content.\n", m_CamId);
      return false;
    }
    if (output.WriteResponse(piece, bytes) != 0) return true;
  } while (offset > 0);
  return true;
}

void VideoStreamingHandler::RelayHls(const Json::Value& info, const char* header, const char* func) {
  if (SendWebAPIToRecAndWriteAsHeader(m_OwnerNdId, JsonToStrPair(info, true, true), header) != 0) {
    QM_LOG_AS(func, LOG_LEVEL_FATAL, "SendWebAPIToRecAndWriteAsHeader failted.[NdId: %d]\n", m_OwnerNdId);
  }
}
