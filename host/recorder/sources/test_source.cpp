// A generated camera, for trying things out without one.
#include "recorder/sources/test_source.h"

#include <algorithm>

#include "recorder/clock.h"
#include "recorder/sources/test_picture.h"
#include "recorder/sources/wait.h"

namespace oculora {

TestSource::TestSource(SourceAddress address, AVCodecID codec, int fps)
    : m_Address(std::move(address)),
      m_Codec(codec),
      m_Fps(fps > 0 ? std::min(fps, kMaxTestFps) : kTestFps),
      m_Pacer(m_Fps) {}

bool TestSource::Open(std::string& reason) {
  int width = 0;
  int height = 0;
  if (!ParseTestSize(m_Address.target, width, height)) {
    reason = kTestSizes;
    return false;
  }
  m_Picture.reset(av_frame_alloc());
  if (m_Encoder.Open(m_Codec, width, height, m_Fps) < 0 || !m_Picture) {
    reason = std::string("This machine's FFmpeg cannot make ") + avcodec_get_name(m_Codec);
    return false;
  }
  m_Picture->format = m_Encoder.PixelFormat();
  m_Picture->width = width;
  m_Picture->height = height;
  m_Picture->pts = 0;
  if (av_frame_get_buffer(m_Picture.get(), 0) == 0) return true;
  reason = "Out of memory";
  return false;
}

bool TestSource::Read(AVPacket& packet, std::string& reason) {
  if (!WaitUntilUs(m_Pacer.NextDueUs(MonotonicUs(), std::nullopt, 0))) return false;
  if (av_frame_make_writable(m_Picture.get()) < 0) {
    reason = "Out of memory";
    return false;
  }
  DrawTestPicture(*m_Picture, WallClockUs());
  const int rc = m_Encoder.Encode(*m_Picture, packet);
  ++m_Picture->pts;
  if (rc < 0) reason = "The test pattern could not be compressed";
  return rc >= 0;
}

}  // namespace oculora
