// Writes an AVI of JPEG pictures as they come, so that what is written can be shown and finished at any moment.
#include "recordings/avi/avi_writer.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "recordings/avi/write_at.h"

namespace oculora {
namespace {

constexpr double kDefaultRate = 25;
constexpr int kMaxSide = 65535;  // what JPEG can say

bool IsJpeg(const std::uint8_t* data, std::size_t size) {
  return size >= 4 && data[0] == 0xff && data[1] == 0xd8 && data[size - 2] == 0xff && data[size - 1] == 0xd9;
}

bool WriteHeader(int fd, const AviHeader& header) {
  const AviHeaderBytes bytes = MakeAviHeader(header);
  return WriteAt(fd, bytes.data(), bytes.size(), 0);
}

// A file is found again after a power cut only when its directory is on the disk.
bool FlushDirectoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const UniqueFd fd(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return fd.IsValid() && fsync(fd.Get()) == 0;
}

}  // namespace

bool AviWriter::Open(const std::string& path, int width, int height, double nominalFps, std::string& reason) {
  if (std::min(width, height) < 1 || std::max(width, height) > kMaxSide) {
    reason = path + " cannot be made for pictures of " + std::to_string(width) + "x" + std::to_string(height);
    return false;
  }
  const std::uint32_t rate = AviRate(nominalFps);
  m_Header = {.width = static_cast<std::uint32_t>(width),
              .height = static_cast<std::uint32_t>(height),
              .rate = rate != 0 ? rate : AviRate(kDefaultRate)};
  m_Fd.Reset(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (m_Fd.IsValid() && WriteHeader(m_Fd.Get(), m_Header) && FlushDirectoryOf(path)) return true;
  reason = path + " cannot be made: " + std::strerror(errno);
  if (m_Fd.IsValid()) unlink(path.c_str());
  Close();
  return false;
}

bool AviWriter::HasRoom(std::size_t size) const {
  if (size > static_cast<std::size_t>(kAviMaxBytes)) return false;
  return m_Header.moviEnd + AviChunkBytes(size) + AviIndexBytes(std::int64_t{m_Header.frames} + 1) <= kAviMaxBytes;
}

int AviWriter::Write(const void* data, std::size_t size) {
  if (!IsJpeg(static_cast<const std::uint8_t*>(data), size)) {
    errno = EINVAL;
    return -1;
  }
  if (!HasRoom(size)) {
    errno = EFBIG;
    return -1;
  }
  std::uint8_t head[kAviChunkHead];
  PutAvi32(head, AviId("00dc"));
  PutAvi32(head + 4, static_cast<std::uint32_t>(size));
  char padding = 0;
  iovec parts[] = {{head, sizeof(head)}, {const_cast<void*>(data), size}, {&padding, size & 1}};
  if (!WriteAt(m_Fd.Get(), parts, 3, m_Header.moviEnd)) {
    const int code = errno;
    // What cannot be cut off now is written over by the next picture, or cut off by FinishAvi.
    [[maybe_unused]] const int cut = ftruncate(m_Fd.Get(), static_cast<off_t>(m_Header.moviEnd));
    errno = code;
    return -1;
  }
  m_Header.moviEnd += AviChunkBytes(size);
  ++m_Header.frames;
  m_Header.largest = std::max(m_Header.largest, static_cast<std::uint32_t>(size));
  return 0;
}

int AviWriter::Sync(double framesPerSecond) {
  if (const std::uint32_t rate = AviRate(framesPerSecond); rate != 0) m_Header.rate = rate;
  return WriteHeader(m_Fd.Get(), m_Header) && fdatasync(m_Fd.Get()) == 0 ? 0 : -1;
}

}  // namespace oculora
