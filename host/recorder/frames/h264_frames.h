// H.264: whole access units as a byte stream, every key frame with SPS and PPS in front.
#pragma once

#include <vector>

#include "recorder/av/bitstream_filter.h"
#include "recorder/frames/annexb.h"
#include "recorder/frames/frame_format.h"

namespace oculora {

// Some cameras repeat the parameter sets before every slice of a key frame, which makes several units of one picture.
// They are put together again: a key frame then waits for the unit after it.
class H264Frames : public FrameFormat {
 public:
  H264Frames();
  bool Start(const AVCodecParameters& stream, AVRational timeBase, CameraRings& rings, std::string& reason) override;
  FrameResult Write(AVPacket& packet, std::int64_t arrivedUs, CameraRings& rings) override;
  bool SawReordering() const override { return m_SawReordering; }

 private:
  void PublishSets(CameraRings& rings);
  FrameResult WriteKey(Bytes unit, const AccessUnitHead& head, std::int64_t arrivedUs, CameraRings& rings);
  FrameResult AddPart(const AccessUnitHead& head);
  void ReleaseHeld(CameraRings& rings);

  BitstreamFilter m_ToByteStream;
  ParameterSets m_Sets;
  std::vector<std::uint8_t> m_KeyUnit;  // room for the largest frame; key frames are put together here
  std::size_t m_HeldSize = 0;           // bytes of a key frame there that waits for its other parts; 0: none waits
  std::int64_t m_HeldArrivedUs = 0;
  bool m_InParts = true;  // key frames come in parts; supposed until the first has shown otherwise
  bool m_SawKey = false;
  bool m_SawReordering = false;
};

}  // namespace oculora
