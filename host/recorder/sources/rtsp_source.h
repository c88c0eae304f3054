// Cameras that speak RTSP.
#pragma once

#include "recorder/av/demuxer.h"
#include "recorder/sources/source.h"

namespace oculora {

// Over TCP when the camera offers it, else UDP. FFmpeg's parser puts whole access units together.
class RtspSource : public Source {
 public:
  explicit RtspSource(SourceAddress address) : m_Address(std::move(address)) {}
  bool Open(std::string& reason) override;
  bool Read(AVPacket& packet, std::string& reason) override;
  const AVCodecParameters& Parameters() const override { return *m_Demuxer.Video().codecpar; }
  AVRational TimeBase() const override { return m_Demuxer.Video().time_base; }

 private:
  SourceAddress m_Address;
  Interrupt m_Interrupt;
  Demuxer m_Demuxer{m_Interrupt};
};

}  // namespace oculora
