// A generated camera, for trying things out without one.
#pragma once

#include "recorder/av/video_encoder.h"
#include "recorder/sources/pacer.h"
#include "recorder/sources/source.h"

namespace oculora {

constexpr int kTestFps = 10;  // when the camera's record names no rate
constexpr int kMaxTestFps = 60;
constexpr char kTestSizes[] = "A test source is test: or test:WIDTHxHEIGHT with even numbers from 16 to 3840";

class TestSource : public Source {
 public:
  TestSource(SourceAddress address, AVCodecID codec, int fps);
  bool Open(std::string& reason) override;
  bool Read(AVPacket& packet, std::string& reason) override;
  const AVCodecParameters& Parameters() const override { return m_Encoder.Parameters(); }
  AVRational TimeBase() const override { return {1, m_Fps}; }

 private:
  SourceAddress m_Address;
  AVCodecID m_Codec;
  int m_Fps;
  Pacer m_Pacer;
  VideoEncoder m_Encoder;
  AvPtr<AVFrame> m_Picture;
};

}  // namespace oculora
