// MPEG-4 part 2: frames as they come.
#include "recorder/frames/mpeg4_frames.h"

#include "recorder/recorder_log.h"

namespace oculora {

bool Mpeg4Frames::Start(const AVCodecParameters& stream, AVRational, CameraRings& rings, std::string&) {
  const auto size = static_cast<std::size_t>(stream.extradata_size);
  if (size > 0 && !rings.SetExtra(stream.extradata, size)) {
    LogError("the stream's header is too large to be announced (%zu bytes)", size);
  }
  return true;
}

FrameResult Mpeg4Frames::Write(AVPacket& packet, std::int64_t arrivedUs, CameraRings& rings) {
  const bool key = (packet.flags & AV_PKT_FLAG_KEY) != 0;
  if (packet.size <= 0 || !(key || m_SawKey)) return FrameResult::kSkipped;
  m_SawKey = true;
  const bool fits = rings.Write(packet.data, static_cast<std::size_t>(packet.size), key, arrivedUs);
  return fits ? FrameResult::kWritten : FrameResult::kTooLarge;
}

}  // namespace oculora
