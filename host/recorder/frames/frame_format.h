// Turns a source's packets into the frames of a ring, one class a video type.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "recorder/av/ffmpeg.h"
#include "recorder/camera_rings.h"

namespace oculora {

// What became of a packet.
enum class FrameResult {
  kWritten,
  kSkipped,   // nothing to show yet (no key frame so far) or damaged
  kTooLarge,  // more than readers can take
  kSound,     // no picture: sound was written
};

// Serves one connection to a camera; not to be used for the next. Allocates nothing per frame itself.
class FrameFormat {
 public:
  virtual ~FrameFormat() = default;

  // Called once before the first packet. False with a sentence in `reason` when the stream cannot be used.
  virtual bool Start(const AVCodecParameters& stream, AVRational timeBase, CameraRings& rings, std::string& reason) = 0;
  // Writes the frame that arrived at `arrivedUs` (microseconds since 1970). May change `packet`.
  virtual FrameResult Write(AVPacket& packet, std::int64_t arrivedUs, CameraRings& rings) = 0;
  // Whether frames came in another order than that in which they are shown.
  virtual bool SawReordering() const { return false; }
};

// The format of a CAM_VIDEO_TYPE; null with a sentence in `reason` when this version does not support it.
std::unique_ptr<FrameFormat> MakeFrameFormat(int videoType, std::string& reason);

// The codec a CAM_VIDEO_TYPE stands for; AV_CODEC_ID_NONE for one unknown here.
AVCodecID CodecOfVideoType(int videoType);

}  // namespace oculora
