// MPEG-4 part 2: frames as they come.
#pragma once

#include "recorder/frames/frame_format.h"

namespace oculora {

class Mpeg4Frames : public FrameFormat {
 public:
  bool Start(const AVCodecParameters& stream, AVRational timeBase, CameraRings& rings, std::string& reason) override;
  FrameResult Write(AVPacket& packet, std::int64_t arrivedUs, CameraRings& rings) override;

 private:
  bool m_SawKey = false;
};

}  // namespace oculora
