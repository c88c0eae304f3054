// The video stream of an FFmpeg input.
#pragma once

#include <string>

#include "recorder/av/dictionary.h"
#include "recorder/av/ffmpeg.h"
#include "recorder/av/interrupt.h"

namespace oculora {

// Errors are AVERROR codes; 0 is success. Calls block as long as `interrupt` lets them.
class Demuxer {
 public:
  explicit Demuxer(Interrupt& interrupt) : m_Interrupt(interrupt) {}

  // Opens `url`. `format` forces a demuxer (null: recognised from the data). With `probe` the stream's details are read
  // ahead; without, they are what the format's header says. AVERROR_STREAM_NOT_FOUND when there is no video.
  int Open(const std::string& url, const char* format, Dictionary& options, bool probe);
  // The next packet of the video stream; releases what `packet` held.
  int Read(AVPacket& packet);
  // Back to the first packet.
  int Rewind();
  void Close();

  // The video stream; valid after Open.
  const AVStream& Video() const { return *m_Context->streams[m_Video]; }
  // The media type the server named ("multipart/x-mixed-replace"), empty when it named none.
  std::string MimeType() const;

 private:
  int ChooseVideo();

  Interrupt& m_Interrupt;
  AvPtr<AVFormatContext> m_Context;
  int m_Video = -1;
};

}  // namespace oculora
