// A generated MxPEG camera, with sound.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "recorder/mxpeg/alaw.h"
#include "recorder/mxpeg/mxpeg_encoder.h"
#include "recorder/sources/pacer.h"
#include "recorder/sources/source.h"

namespace oculora {

// The test picture with a key picture a second, and behind each picture the sound until the next: a quiet tone of 400
// Hz.
class MxpegTestSource : public Source {
 public:
  MxpegTestSource(SourceAddress address, int fps);
  bool Open(std::string& reason) override;
  // The packet's bytes are this object's and good until the next call.
  bool Read(AVPacket& packet, std::string& reason) override;
  const AVCodecParameters& Parameters() const override { return *m_Parameters; }
  AVRational TimeBase() const override { return {1, 1000000}; }

 private:
  bool ReadPicture(AVPacket& packet, std::string& reason);
  void ReadSound(AVPacket& packet);

  SourceAddress m_Address;
  int m_Fps;
  Pacer m_Pacer;
  AvPtr<AVCodecParameters> m_Parameters;
  AvPtr<AVFrame> m_Picture;
  MxpegEncoder m_Encoder;
  std::array<std::uint8_t, kAlawRate / 400> m_Wave;
  std::vector<std::uint8_t> m_Sound;
  std::int64_t m_Pictures = 0;  // handed out
  std::int64_t m_Samples = 0;
  bool m_SoundNext = false;
};

}  // namespace oculora
