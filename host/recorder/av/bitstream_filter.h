// An FFmpeg bitstream filter that turns one packet into one packet.
#pragma once

#include "recorder/av/ffmpeg.h"

namespace oculora {

class BitstreamFilter {
 public:
  // 0, or an AVERROR (also when the filter does not exist or the parameters do not suit it).
  int Open(const char* name, const AVCodecParameters& input, AVRational timeBase);
  bool IsOpen() const { return m_Context != nullptr; }

  // Replaces `packet` by the filtered one. 0 or an AVERROR; the packet is empty then.
  int Filter(AVPacket& packet);

  // Parameters of what comes out; valid after Open.
  const AVCodecParameters& Output() const { return *m_Context->par_out; }

 private:
  AvPtr<AVBSFContext> m_Context;
};

}  // namespace oculora
