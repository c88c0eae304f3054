// Recorded files as JPEG frames: AVI files of JPEGs from here, all others from the media object.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstring>

#include "front/unique_fd.h"
#include "media/media_object.h"
#include "recordings/avi/avi_index.h"
#include "velm/media.h"
#include "webapi/log_line.h"
#include "writers/lent_bytes.h"

namespace {

constexpr char kLogUnit[] = "media";
constexpr double kHighestRate = 1000;  // frames a second; more is a damaged header

bool ReadAll(int fd, unsigned char* to, std::size_t size, std::uint64_t offset) {
  for (std::size_t done = 0; done < size;) {
    const ssize_t count = pread(fd, to + done, size - done, static_cast<off_t>(offset + done));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    done += static_cast<std::size_t>(count);
  }
  return true;
}

}  // namespace

struct JpegExtractor::Impl {
  Impl() = default;
  ~Impl() {
    oculora::TakeBack();
    if (recording != nullptr) oculora::LoadMedia()->closeRecording(recording);
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  bool Open(const std::string& path, std::string& reason) {
    fd.Reset(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));  // a pipe must not keep a request waiting
    if (!fd.IsValid()) {
      reason = std::strerror(errno);
      return false;
    }
    std::string notAvi;
    if (oculora::ReadAviIndex(fd.Get(), avi, notAvi)) {
      info = {avi.rate, static_cast<std::int32_t>(std::min<std::size_t>(avi.frames.size(), INT32_MAX))};
      return true;
    }
    const oculora::MediaTable* media = oculora::LoadMedia();
    if (media == nullptr) {
      reason = "what reads video files is not installed";
      return false;
    }
    recording = media->openRecording(fd.Get(), info, reason);
    return recording != nullptr;
  }

  int Read(unsigned index, unsigned char* buffer, unsigned& size) const {
    oculora::TakeBack();
    if (index >= static_cast<unsigned>(info.frames)) return -1;
    if (recording != nullptr) {
      int length = 0;
      const int capacity = static_cast<int>(std::min<unsigned>(size, INT_MAX));
      if (oculora::LoadMedia()->readRecording(recording, static_cast<std::int32_t>(index), buffer, capacity, length) !=
          oculora::kMediaDone) {
        return -1;
      }
      size = static_cast<unsigned>(length);
      return 0;
    }
    const oculora::AviFrame& frame = avi.frames[index];
    if (frame.size > size || !ReadAll(fd.Get(), buffer, frame.size, frame.offset)) return -1;
    size = frame.size;
    oculora::Lend({buffer, size, fd.Get(), static_cast<off_t>(frame.offset)});
    return 0;
  }

  oculora::UniqueFd fd;
  oculora::AviIndex avi;
  void* recording = nullptr;  // of the media object; null: the AVI
  oculora::RecordingInfo info;
};

JpegExtractor::JpegExtractor() = default;
JpegExtractor::~JpegExtractor() = default;

int JpegExtractor::Init(const std::string& path) {
  m_Impl = std::make_unique<Impl>();
  std::string reason;
  if (m_Impl->Open(path, reason)) return 0;
  HOST_LOG_ERROR("%s cannot be played: %s.\n", path.c_str(), reason.c_str());
  m_Impl.reset();
  return -1;
}

int JpegExtractor::GetFrameInfo(__tag_JPEG_FRAME_INFO& info) {
  if (!m_Impl) return -1;
  const double rate = m_Impl->info.rate;
  if (!std::isfinite(rate) || rate < 0 || rate > kHighestRate) return -1;
  info = {static_cast<float>(rate), m_Impl->info.frames};
  return 0;
}

int JpegExtractor::ReadFrame(unsigned index, unsigned char* buffer, unsigned& size) {
  return m_Impl && buffer != nullptr ? m_Impl->Read(index, buffer, size) : -1;
}
