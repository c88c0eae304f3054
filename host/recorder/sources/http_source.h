// Cameras that send their pictures over HTTP.
#pragma once

#include "recorder/av/demuxer.h"
#include "recorder/sources/source.h"

namespace oculora {

// MJPEG as a multipart answer, or as pictures one after the other when the answer's parts cannot be told apart; other
// codecs in any container that FFmpeg recognises.
class HttpSource : public Source {
 public:
  HttpSource(SourceAddress address, AVCodecID expected) : m_Address(std::move(address)), m_Expected(expected) {}
  bool Open(std::string& reason) override;
  bool Read(AVPacket& packet, std::string& reason) override;
  const AVCodecParameters& Parameters() const override { return *m_Demuxer.Video().codecpar; }
  AVRational TimeBase() const override { return m_Demuxer.Video().time_base; }

 private:
  int Connect(const char* format, bool probe);

  SourceAddress m_Address;
  AVCodecID m_Expected;
  Interrupt m_Interrupt;
  Demuxer m_Demuxer{m_Interrupt};
};

}  // namespace oculora
