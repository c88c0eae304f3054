// The pictures of a recording by their numbers, decoded.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <cstdint>
#include <memory>

#include "media/extractor/demuxed_recording.h"
#include "media/extractor/picture_numbers.h"
#include "velm/media.h"

namespace oculora {

// Keeps the picture found last and the place in the file, so that what follows costs one picture to decode, and what
// is elsewhere one group of pictures. One thread.
class PictureDecoder {
 public:
  // The recording stays the caller's and open as long as the object.
  explicit PictureDecoder(DemuxedRecording& recording) : m_Recording(recording) {}
  ~PictureDecoder();
  PictureDecoder(const PictureDecoder&) = delete;
  PictureDecoder& operator=(const PictureDecoder&) = delete;

  // False when there is no decoder for the stream.
  bool Open();

  // Decodes the picture `number` (below Index().pictures), that is, the one shown after so many others. One that
  // cannot be decoded is stood in for by the next one or, when that is far, the one before. False when nothing from
  // there on can be decoded.
  bool Find(std::int32_t number);

  // What Find found, for the scaler.
  FFmpegAttr& Picture() { return m_Picture; }

 private:
  struct PacketFree {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  };

  struct FrameFree {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
  };

  bool BeginAt(std::size_t group, std::int32_t number);
  bool DecodeFrom(std::size_t group, std::int32_t number);
  bool DecodeTo(std::int32_t number);
  bool DecodeOne(std::int32_t wanted);
  void Feed();
  void Keep();

  DemuxedRecording& m_Recording;
  std::unique_ptr<AVPacket, PacketFree> m_Packet;
  std::unique_ptr<AVFrame, FrameFree> m_Decoded;
  PictureNumbers m_Numbers;
  FFmpegAttr m_Picture{};
  bool m_HasPicture = false;
  std::int32_t m_First = 0;  // the picture stands for those from here
  std::int32_t m_Last = 0;   // to here: its own number or, when none follows, one beyond
  bool m_IsDraining = false;
};

}  // namespace oculora
