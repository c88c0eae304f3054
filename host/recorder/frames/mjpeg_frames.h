// MJPEG: every frame one whole JPEG, byte for byte as the camera sent it.
#pragma once

#include "recorder/av/bitstream_filter.h"
#include "recorder/frames/frame_format.h"

namespace oculora {

// The one exception to "as sent": a picture that leaves out its Huffman tables gets the standard ones, because
// browsers cannot show it otherwise.
class MjpegFrames : public FrameFormat {
 public:
  bool Start(const AVCodecParameters& stream, AVRational timeBase, CameraRings& rings, std::string& reason) override;
  FrameResult Write(AVPacket& packet, std::int64_t arrivedUs, CameraRings& rings) override;

 private:
  BitstreamFilter m_AddTables;
};

}  // namespace oculora
