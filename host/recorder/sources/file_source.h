// A recorded file, over and over, at its own pace.
#pragma once

#include <cstdint>

#include "recorder/av/demuxer.h"
#include "recorder/sources/pacer.h"
#include "recorder/sources/source.h"

namespace oculora {

class FileSource : public Source {
 public:
  FileSource(SourceAddress address, int fps) : m_Address(std::move(address)), m_Pacer(fps) {}
  bool Open(std::string& reason) override;
  bool Read(AVPacket& packet, std::string& reason) override;
  const AVCodecParameters& Parameters() const override { return *m_Demuxer.Video().codecpar; }
  AVRational TimeBase() const override { return m_Demuxer.Video().time_base; }

 private:
  int Connect();
  int ReadLooped(AVPacket& packet);
  std::int64_t DueUs(const AVPacket& packet);

  SourceAddress m_Address;
  Pacer m_Pacer;
  Interrupt m_Interrupt;
  Demuxer m_Demuxer{m_Interrupt};
  bool m_EmptyLoop = true;  // no frame since the last start of the file
};

}  // namespace oculora
