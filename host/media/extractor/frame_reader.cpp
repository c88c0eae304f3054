// Any frame of a recorded file as a JPEG. See frame_reader.h.
#include "media/extractor/frame_reader.h"

#include <cstring>
#include <memory>

#include "media/codec/codec.h"
#include "media/codec/ffmpeg.h"
#include "media/extractor/demuxed_recording.h"
#include "media/extractor/picture_decoder.h"

namespace oculora {
namespace {

class FrameReader {
 public:
  bool Open(int fd, std::string& reason) {
    if (!m_Recording.Open(fd, reason)) return false;
    m_IsJpeg = m_Recording.Stream().codecpar->codec_id == AV_CODEC_ID_MJPEG;
    m_Packet.reset(av_packet_alloc());
    if (!m_Packet || (!m_IsJpeg && !m_Decoder.Open())) {
      reason = std::string("there is no decoder for its video, ") +
               avcodec_get_name(m_Recording.Stream().codecpar->codec_id);
      return false;
    }
    return true;
  }

  RecordingInfo Info() const { return {m_Recording.Index().rate, m_Recording.Index().pictures}; }

  MediaResult Read(std::int32_t number, unsigned char* jpeg, int capacity, int& jpegSize) {
    jpegSize = 0;
    if (number < 0 || number >= m_Recording.Index().pictures) return kMediaFailed;
    return m_IsJpeg ? CopyStored(number, jpeg, capacity, jpegSize) : Compress(number, jpeg, capacity, jpegSize);
  }

 private:
  // JPEGs are stored one a packet, in the order of showing.
  MediaResult CopyStored(std::int32_t number, unsigned char* jpeg, int capacity, int& jpegSize) {
    const RecordingIndex& index = m_Recording.Index();
    const std::size_t group = index.GroupOf(number);
    const bool isAhead = number >= m_Recording.Next() && index.keys[group].number <= m_Recording.Next();
    if (!isAhead && !m_Recording.GoTo(group)) return kMediaFailed;
    do {
      if (!m_Recording.Read(*m_Packet)) return kMediaFailed;
    } while (m_Recording.Next() <= number);
    if (m_Packet->size > capacity) return kMediaTooLarge;
    std::memcpy(jpeg, m_Packet->data, static_cast<std::size_t>(m_Packet->size));
    jpegSize = m_Packet->size;
    return kMediaDone;
  }

  MediaResult Compress(std::int32_t number, unsigned char* jpeg, int capacity, int& jpegSize) {
    if (!m_Decoder.Find(number)) return kMediaFailed;
    unsigned char* rgb = nullptr;
    int size = 0, width = 0, height = 0;
    if (Scale(m_Decoder.Picture(), rgb, size, width, height, AV_PIX_FMT_RGB24) != kMediaDone) return kMediaFailed;
    const BytesPtr owner(rgb);
    // A picture too rich for the caller's room is shown in less detail rather than not at all.
    for (const int quality : {-1, 60, 30}) {
      if (EncodeJpeg(width, height, rgb, jpeg, capacity, jpegSize, quality) == kMediaDone) return kMediaDone;
    }
    return kMediaTooLarge;
  }

  DemuxedRecording m_Recording;
  PictureDecoder m_Decoder{m_Recording};
  PacketPtr m_Packet;
  bool m_IsJpeg = false;
};

}  // namespace

void* OpenRecording(int fd, RecordingInfo& info, std::string& reason) {
  auto reader = std::make_unique<FrameReader>();
  if (!reader->Open(fd, reason)) return nullptr;
  info = reader->Info();
  return reader.release();
}

MediaResult ReadRecordedFrame(void* recording, std::int32_t number, unsigned char* jpeg, int capacity, int& jpegSize) {
  return static_cast<FrameReader*>(recording)->Read(number, jpeg, capacity, jpegSize);
}

void CloseRecording(void* recording) { delete static_cast<FrameReader*>(recording); }

}  // namespace oculora
