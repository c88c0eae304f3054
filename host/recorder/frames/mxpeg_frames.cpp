// MxPEG: whole pictures and those that hold only what changed, and the sound between them.
#include "recorder/frames/mxpeg_frames.h"

#include "recorder/frames/mxpeg_picture.h"

namespace oculora {

bool MxpegFrames::Start(const AVCodecParameters&, AVRational timeBase, CameraRings&, std::string& reason) {
  const AvPtr<AVCodecParameters> jpeg(avcodec_parameters_alloc());
  if (!jpeg) {
    reason = "Out of memory";
    return false;
  }
  jpeg->codec_type = AVMEDIA_TYPE_VIDEO;
  jpeg->codec_id = AV_CODEC_ID_MJPEG;  // the only one the filter takes
  if (m_AddTables.Open("mjpeg2jpeg", *jpeg, timeBase) == 0) return true;
  reason = "FFmpeg lacks the filter mjpeg2jpeg";
  return false;
}

FrameResult MxpegFrames::Write(AVPacket& packet, std::int64_t arrivedUs, CameraRings& rings) {
  switch (packet.stream_index) {
    case kMxpegPicture: {
      const FrameResult result = WritePicture(packet, arrivedUs, rings);
      if (result != FrameResult::kWritten || rings.WasLost()) m_NeedsKey = true;
      return result;
    }
    case kMxpegSound:
      rings.WriteSound(packet.data, static_cast<std::size_t>(packet.size), arrivedUs);
      return FrameResult::kSound;
    case kMxpegTooLarge:
      m_NeedsKey = true;
      return FrameResult::kTooLarge;
    default:
      m_NeedsKey = true;
      return FrameResult::kSkipped;
  }
}

FrameResult MxpegFrames::WritePicture(AVPacket& packet, std::int64_t arrivedUs, CameraRings& rings) {
  const MxpegPicture picture = ReadMxpegPicture({packet.data, static_cast<std::size_t>(packet.size)});
  if (!picture.key && m_NeedsKey) return FrameResult::kSkipped;
  // The tables go in front; the comment with the time stamp stays.
  if (picture.key && !picture.hasHuffmanTables && m_AddTables.Filter(packet) < 0) return FrameResult::kSkipped;
  m_NeedsKey = false;
  const bool fits = rings.Write(packet.data, static_cast<std::size_t>(packet.size), picture.key, arrivedUs);
  return fits ? FrameResult::kWritten : FrameResult::kTooLarge;
}

}  // namespace oculora
