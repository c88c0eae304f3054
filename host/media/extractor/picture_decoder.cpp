// The pictures of a recording by their numbers, decoded. See picture_decoder.h.
#include "media/extractor/picture_decoder.h"

#include <algorithm>

#include "media/codec/codec.h"
#include "media/codec/ffmpeg.h"

namespace oculora {
namespace {

// Decoders hold back up to 16 pictures to put them in order. Where nothing came for so many more, all are damaged, and
// the picture before stands in for them: looking for the next one could take long.
constexpr std::int32_t kMostAhead = 64;

}  // namespace

PictureDecoder::~PictureDecoder() { CloseDecoder(m_Picture); }

bool PictureDecoder::Open() {
  const AVCodecParameters& parameters = *m_Recording.Stream().codecpar;
  const AVCodec* decoder = avcodec_find_decoder(parameters.codec_id);
  if (decoder == nullptr) return false;
  AVCodecContext* context = avcodec_alloc_context3(decoder);
  m_Picture.codecContext = context;
  m_Picture.frame = av_frame_alloc();
  m_Decoded.reset(av_frame_alloc());
  m_Packet.reset(av_packet_alloc());
  if (context == nullptr || m_Picture.frame == nullptr || !m_Decoded || !m_Packet) return false;
  if (avcodec_parameters_to_context(context, &parameters) < 0) return false;
  context->pkt_timebase = m_Recording.Stream().time_base;
  context->thread_count = 1;  // each thread more keeps pictures of its own
  context->max_pixels = kMostPixels;
  return avcodec_open2(context, decoder, nullptr) == 0;
}

bool PictureDecoder::Find(std::int32_t number) {
  if (m_HasPicture && m_First <= number && number <= m_Last) return true;
  const RecordingIndex& index = m_Recording.Index();
  const std::size_t group = index.GroupOf(number);
  if (!m_HasPicture || number < m_First || index.keys[group].number > m_Recording.Next()) return BeginAt(group, number);
  return DecodeTo(number);
}

// The pictures shown before an open group's key picture, but stored behind it, need the group before.
bool PictureDecoder::BeginAt(std::size_t group, std::int32_t number) {
  bool found = DecodeFrom(group, number);
  const bool isEarly = found && m_First <= number;
  if (!isEarly && group > 0) found = DecodeFrom(group - 1, number);
  m_First = std::min(m_First, number);
  return found;
}

bool PictureDecoder::DecodeFrom(std::size_t group, std::int32_t number) {
  m_HasPicture = m_IsDraining = false;
  if (!m_Recording.GoTo(group)) return false;
  avcodec_flush_buffers(CodecOf(m_Picture));
  m_Numbers.Begin(m_Recording.Next());
  return DecodeTo(number);
}

bool PictureDecoder::DecodeTo(std::int32_t number) {
  while (!m_HasPicture || m_Last < number) {
    if (DecodeOne(number)) continue;
    m_Last = number;
    break;
  }
  return m_HasPicture;
}

// The next picture, whichever it is.
bool PictureDecoder::DecodeOne(std::int32_t wanted) {
  for (;;) {
    const int rc = avcodec_receive_frame(CodecOf(m_Picture), m_Decoded.get());
    if (rc == 0) {
      Keep();
      return true;
    }
    if (m_IsDraining || (m_HasPicture && m_Recording.Next() > wanted + kMostAhead)) return false;
    Feed();
  }
}

// What the decoder thinks of a packet shows in what comes out.
void PictureDecoder::Feed() {
  m_IsDraining = !m_Recording.Read(*m_Packet);
  if (!m_IsDraining && (m_Packet->flags & AV_PKT_FLAG_DISCARD) == 0) m_Numbers.Sent(m_Packet->pts);
  avcodec_send_packet(CodecOf(m_Picture), m_IsDraining ? nullptr : m_Packet.get());
}

void PictureDecoder::Keep() {
  // Where a camera's pictures are put in order, the times at which they arrived do not tell it.
  const bool isTimed = !m_Recording.HasTimesOfArrival() || CodecOf(m_Picture)->has_b_frames == 0;
  const std::int32_t number = m_Numbers.CameOut(isTimed ? m_Decoded->pts : AV_NOPTS_VALUE);
  m_First = m_HasPicture ? std::min(m_Last + 1, number) : number;
  m_Last = number;
  m_HasPicture = true;
  AVFrame& frame = *FrameOf(m_Picture);
  av_frame_unref(&frame);
  av_frame_move_ref(&frame, m_Decoded.get());
  m_Picture.width = frame.width;
  m_Picture.height = frame.height;
}

}  // namespace oculora
