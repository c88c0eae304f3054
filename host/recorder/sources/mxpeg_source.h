// Cameras that send MxPEG over HTTP, and recordings of it.
#pragma once

#include <cstdint>
#include <optional>

#include "recorder/av/byte_input.h"
#include "recorder/frames/mxpeg_splitter.h"
#include "recorder/sources/pacer.h"
#include "recorder/sources/source.h"

namespace oculora {

// Packets as MxpegFrames takes them. FFmpeg has a demuxer for this, but it reads in blocks, so that a picture's end
// would lie with it until the next picture comes. A camera that sends plain JPEG pictures is fine: they are all key
// pictures.
class MxpegSource : public Source {
 public:
  // `fps` is the pace of a file; 0: at the distances of its pictures' time stamps, 25 a second when they have none.
  MxpegSource(SourceAddress address, int fps);
  bool Open(std::string& reason) override;
  // The packet's bytes are this object's and good until the next call.
  bool Read(AVPacket& packet, std::string& reason) override;
  const AVCodecParameters& Parameters() const override { return *m_Parameters; }
  AVRational TimeBase() const override { return {1, 1000000}; }

 private:
  bool IsFile() const { return m_Address.kind == SourceKind::kFile; }
  int Connect();
  int FindFirst();
  int Receive();
  int TakeItem(MxpegItem& item);
  int StartOver();
  void NoteDamage(const MxpegItem& item);

  SourceAddress m_Address;
  Pacer m_Pacer;
  AvPtr<AVCodecParameters> m_Parameters;
  Interrupt m_Interrupt;
  ByteInput m_Input{m_Interrupt};
  MxpegSplitter m_Splitter;
  std::optional<MxpegItem> m_First;  // found by Open, for the first Read
  bool m_EmptyLoop = true;           // no picture since the last start of the file
  bool m_DamageNoted = false;
};

}  // namespace oculora
