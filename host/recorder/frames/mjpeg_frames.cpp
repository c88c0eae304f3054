// MJPEG: every frame one whole JPEG, byte for byte as the camera sent it.
#include "recorder/frames/mjpeg_frames.h"

#include "recorder/frames/jpeg_check.h"

namespace oculora {

bool MjpegFrames::Start(const AVCodecParameters& stream, AVRational timeBase, CameraRings&, std::string& reason) {
  if (m_AddTables.Open("mjpeg2jpeg", stream, timeBase) == 0) return true;
  reason = "FFmpeg lacks the filter mjpeg2jpeg";
  return false;
}

FrameResult MjpegFrames::Write(AVPacket& packet, std::int64_t arrivedUs, CameraRings& rings) {
  const JpegCheck check = CheckJpeg({packet.data, static_cast<std::size_t>(packet.size)});
  if (check.length == 0) return FrameResult::kSkipped;
  av_shrink_packet(&packet, static_cast<int>(check.length));
  if (!check.hasHuffmanTables && m_AddTables.Filter(packet) < 0) return FrameResult::kSkipped;
  const bool fits = rings.Write(packet.data, static_cast<std::size_t>(packet.size), true, arrivedUs);
  return fits ? FrameResult::kWritten : FrameResult::kTooLarge;
}

}  // namespace oculora
