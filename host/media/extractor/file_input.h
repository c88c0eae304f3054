// A recorded file as FFmpeg's demuxers read it: through a descriptor, up to a fixed end, and no other file.
#pragma once

extern "C" {
#include <libavformat/avformat.h>
}

#include <cstdint>

namespace oculora {

class FileInput {
 public:
  // `fd` stays the caller's and open as long as the object; its position is not used. What is behind `bytes` does not
  // exist, so that the end of a file that is still being written stays where it was.
  FileInput(int fd, std::int64_t bytes);
  ~FileInput();
  FileInput(const FileInput&) = delete;
  FileInput& operator=(const FileInput&) = delete;

  // Lets `demuxer` read from here alone: a file that names others (a playlist) does not get them. False when memory
  // is short. A demuxer attached before is to be closed already.
  bool Attach(AVFormatContext& demuxer);

 private:
  static int Read(void* self, std::uint8_t* to, int size);
  static std::int64_t Seek(void* self, std::int64_t offset, int whence);

  const int m_Fd;
  const std::int64_t m_Bytes;
  std::int64_t m_At = 0;
  AVIOContext* m_Io = nullptr;
};

}  // namespace oculora
