// MxPEG: whole pictures and those that hold only what changed, and the sound between them.
#pragma once

#include "recorder/av/bitstream_filter.h"
#include "recorder/frames/frame_format.h"

namespace oculora {

// What the packets of an MxPEG source hold, by their stream index.
enum MxpegPacket : int {
  kMxpegPicture = 0,
  kMxpegSound = 1,
  kMxpegLost = 2,      // nothing: pictures before the next one are missing
  kMxpegTooLarge = 3,  // nothing, in place of a picture that readers could not take
};

// Pictures as sent, key pictures marked. One that needs a picture which is missing is left out: a decoder would draw it
// over a wrong one, and the error would stay until the next key picture. A key picture without Huffman tables gets
// the standard ones, as browsers cannot show it otherwise.
class MxpegFrames : public FrameFormat {
 public:
  bool Start(const AVCodecParameters& stream, AVRational timeBase, CameraRings& rings, std::string& reason) override;
  FrameResult Write(AVPacket& packet, std::int64_t arrivedUs, CameraRings& rings) override;

 private:
  FrameResult WritePicture(AVPacket& packet, std::int64_t arrivedUs, CameraRings& rings);

  BitstreamFilter m_AddTables;
  bool m_NeedsKey = true;
};

}  // namespace oculora
