// The MPEG-TS segmenter: turns raw H.264 from a pipe into slices and a live playlist.
//
// Every live-video handler holds one. Its state is plain pointers, so holding an idle one loads no media library.
#pragma once

#include <cstdint>

struct AVFormatContext;
struct AVStream;

class H264TS {
 public:
  H264TS() = default;
  ~H264TS() { StopTransCode(); }
  H264TS(const H264TS&) = delete;
  H264TS& operator=(const H264TS&) = delete;

  // Asks a running transcode, in another thread, to end before its next read. Always 0. Never blocks.
  int StopTransCode() {
    m_Running = false;
    return 0;
  }

 private:
  [[maybe_unused]] AVFormatContext* m_Input = nullptr;
  [[maybe_unused]] AVFormatContext* m_Output = nullptr;
  [[maybe_unused]] AVStream* m_OutputStream = nullptr;
  [[maybe_unused]] void* m_Reserved1 = nullptr;
  [[maybe_unused]] AVStream* m_InputStream = nullptr;
  [[maybe_unused]] void* m_Reserved2 = nullptr;
  [[maybe_unused]] std::int64_t m_BytesWritten = 0;
  [[maybe_unused]] std::int32_t m_FrameCount = 0;
  [[maybe_unused]] std::int32_t m_FrameDuration = 0;
  bool m_Running = false;
};
