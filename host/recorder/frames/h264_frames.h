// H.264: whole access units as a byte stream, every key frame with SPS and PPS in front.
#pragma once

#include <vector>

#include "recorder/av/bitstream_filter.h"
#include "recorder/frames/annexb.h"
#include "recorder/frames/frame_format.h"

namespace oculora {

class H264Frames : public FrameFormat {
 public:
  H264Frames();
  bool Start(const AVCodecParameters& stream, AVRational timeBase, CameraRings& rings, std::string& reason) override;
  FrameResult Write(AVPacket& packet, std::int64_t arrivedUs, CameraRings& rings) override;

 private:
  void PublishSets(CameraRings& rings);

  BitstreamFilter m_ToByteStream;
  ParameterSets m_Sets;
  std::vector<std::uint8_t> m_KeyUnit;  // room for the largest frame; key frames are put together here
  bool m_SawKey = false;
};

}  // namespace oculora
