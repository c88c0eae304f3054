// A recorded file as FFmpeg's demuxers read it. See file_input.h.
#include "media/extractor/file_input.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace oculora {
namespace {

constexpr int kBufferBytes = 32768;

int RefuseOther(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**) { return AVERROR(EACCES); }

void Release(AVIOContext*& io) {
  if (io != nullptr) av_freep(&io->buffer);  // the demuxer may have replaced the one it was given
  avio_context_free(&io);
}

}  // namespace

FileInput::FileInput(int fd, std::int64_t bytes) : m_Fd(fd), m_Bytes(bytes) {}

FileInput::~FileInput() { Release(m_Io); }

bool FileInput::Attach(AVFormatContext& demuxer) {
  Release(m_Io);
  m_At = 0;
  auto* buffer = static_cast<unsigned char*>(av_malloc(kBufferBytes));
  if (buffer == nullptr) return false;
  m_Io = avio_alloc_context(buffer, kBufferBytes, 0, this, Read, nullptr, Seek);
  if (m_Io == nullptr) {
    av_free(buffer);
    return false;
  }
  demuxer.pb = m_Io;
  demuxer.io_open = RefuseOther;
  return true;
}

int FileInput::Read(void* self, std::uint8_t* to, int size) {
  auto& input = *static_cast<FileInput*>(self);
  const std::int64_t left = std::max<std::int64_t>(input.m_Bytes - input.m_At, 0);
  const auto wanted = static_cast<std::size_t>(std::min<std::int64_t>(size, left));
  if (wanted == 0) return AVERROR_EOF;
  ssize_t count;
  do {
    count = pread(input.m_Fd, to, wanted, input.m_At);
  } while (count < 0 && errno == EINTR);
  if (count < 0) return AVERROR(errno);
  if (count == 0) return AVERROR_EOF;
  input.m_At += count;
  return static_cast<int>(count);
}

std::int64_t FileInput::Seek(void* self, std::int64_t offset, int whence) {
  auto& input = *static_cast<FileInput*>(self);
  switch (whence & ~AVSEEK_FORCE) {
    case AVSEEK_SIZE:
      return input.m_Bytes;
    case SEEK_CUR:
      offset += input.m_At;
      break;
    case SEEK_END:
      offset += input.m_Bytes;
      break;
    default:
      break;
  }
  if (offset < 0) return AVERROR(EINVAL);
  return input.m_At = offset;
}

}  // namespace oculora
