// One access unit in, one picture out.
#include <cstring>

#include "media/codec/codec.h"
#include "media/codec/ffmpeg.h"
#include "velm/camera.h"

namespace oculora {
namespace {

// The one thing only FFmpeg's log tells: that a size is refused. The decoders here report on the thread that called
// them.
thread_local bool t_SizeRefused = false;

void OnLogLine(void*, int, const char* format, va_list) {
  if (std::strstr(format, "Picture size") != nullptr) t_SizeRefused = true;
}

AVCodecID CodecOfType(int videoType) {
  switch (videoType) {
    case VIDEO_TYPE_MJPEG:
      return AV_CODEC_ID_MJPEG;
    case VIDEO_TYPE_MPEG4:
      return AV_CODEC_ID_MPEG4;
    case VIDEO_TYPE_H264:
    case VIDEO_TYPE_H264_PLUS:
      return AV_CODEC_ID_H264;
    case VIDEO_TYPE_MXPEG:
      return AV_CODEC_ID_MXPEG;
    default:
      return AV_CODEC_ID_NONE;
  }
}

// Decoders read beyond the end of what they are given, into zeros.
bool CopyExtra(const unsigned char* extra, int size, uint8_t*& copy, int& copySize) {
  copy = static_cast<uint8_t*>(av_mallocz(static_cast<std::size_t>(size) + AV_INPUT_BUFFER_PADDING_SIZE));
  if (copy == nullptr) return false;
  std::memcpy(copy, extra, static_cast<std::size_t>(size));
  copySize = size;
  return true;
}

// H.264 extra data in the form of files ("avcC", whose first byte is 1) would make the decoder expect units with
// lengths in place of start codes. Its parameter sets are therefore handed over as the byte stream that the units are;
// none when it is damaged, as key frames repeat them.
bool CopySets(const unsigned char* extra, int size, uint8_t*& copy, int& copySize) {
  const AVBitStreamFilter* toByteStream = av_bsf_get_by_name("h264_mp4toannexb");
  AVBSFContext* allocated = nullptr;
  if (toByteStream == nullptr || av_bsf_alloc(toByteStream, &allocated) < 0) return false;
  const FilterPtr filter(allocated);
  filter->par_in->codec_type = AVMEDIA_TYPE_VIDEO;
  filter->par_in->codec_id = AV_CODEC_ID_H264;
  if (!CopyExtra(extra, size, filter->par_in->extradata, filter->par_in->extradata_size)) return false;
  if (av_bsf_init(filter.get()) < 0) return true;
  const AVCodecParameters& sets = *filter->par_out;
  return sets.extradata_size <= 0 || CopyExtra(sets.extradata, sets.extradata_size, copy, copySize);
}

bool SetExtra(AVCodecContext& context, const unsigned char* extra, int size) {
  if (extra == nullptr || size <= 0) return true;
  const bool isAvcc = context.codec_id == AV_CODEC_ID_H264 && extra[0] == 1;
  return (isAvcc ? CopySets : CopyExtra)(extra, size, context.extradata, context.extradata_size);
}

bool SendUnit(AVCodecContext& context, const unsigned char* unit, int size) {
  const PacketPtr packet(av_packet_alloc());
  if (!packet || av_new_packet(packet.get(), size) < 0) return false;  // padded with zeros
  std::memcpy(packet->data, unit, static_cast<std::size_t>(size));
  packet->flags |= AV_PKT_FLAG_KEY;
  return avcodec_send_packet(&context, packet.get()) == 0;
}

// A stream that reorders holds its picture back until it is told that nothing follows.
bool ReceivePicture(AVCodecContext& context, AVFrame& frame) {
  const int rc = avcodec_receive_frame(&context, &frame);
  if (rc != AVERROR(EAGAIN)) return rc == 0;
  const bool received = avcodec_send_packet(&context, nullptr) == 0 && avcodec_receive_frame(&context, &frame) == 0;
  avcodec_flush_buffers(&context);
  return received;
}

// Whether every sample of the luma is the same: what concealment makes of a picture of which nothing could be decoded.
bool IsFlat(const AVFrame& frame) {
  const uint8_t* first = frame.data[0];
  const auto width = static_cast<std::size_t>(frame.width);
  if (std::memcmp(first, first + 1, width - 1) != 0) return false;
  for (int y = 1; y < frame.height; ++y) {
    if (std::memcmp(first, first + static_cast<std::ptrdiff_t>(y) * frame.linesize[0], width) != 0) return false;
  }
  return true;
}

bool HasPicture(const AVFrame& frame) {
  if (frame.width <= 0 || frame.height <= 0 || frame.data[0] == nullptr) return false;
  const bool damaged = frame.decode_error_flags != 0 || (frame.flags & AV_FRAME_FLAG_CORRUPT) != 0;
  return !damaged || !IsFlat(frame);
}

}  // namespace

void QuietFfmpeg() { av_log_set_callback(OnLogLine); }

MediaResult OpenDecoder(FFmpegAttr& attr, int videoType, const unsigned char* extra, int extraSize) {
  CloseDecoder(attr);
  const AVCodecID id = CodecOfType(videoType);
  const AVCodec* decoder = id != AV_CODEC_ID_NONE ? avcodec_find_decoder(id) : nullptr;
  if (decoder == nullptr) return kMediaUnknownType;
  AVCodecContext* context = avcodec_alloc_context3(decoder);
  attr.codecContext = context;
  attr.frame = av_frame_alloc();
  if (context != nullptr && attr.frame != nullptr && SetExtra(*context, extra, extraSize)) {
    context->thread_count = 1;  // threads would give the picture only after later units
    context->max_pixels = kMostPixels;
    // A JPEG cut short has no concealment, only green or an older picture from where it ends.
    if (decoder->id == AV_CODEC_ID_MJPEG || decoder->id == AV_CODEC_ID_MXPEG) context->err_recognition |= AV_EF_EXPLODE;
    if (avcodec_open2(context, decoder, nullptr) == 0) return kMediaDone;
  }
  CloseDecoder(attr);
  return kMediaFailed;
}

MediaResult Decode(FFmpegAttr& attr, const unsigned char* unit, int size) {
  attr.width = attr.height = 0;
  if (attr.codecContext == nullptr || attr.frame == nullptr || unit == nullptr || size <= 0) return kMediaFailed;
  AVCodecContext& context = *CodecOf(attr);
  AVFrame& frame = *FrameOf(attr);
  av_frame_unref(&frame);
  t_SizeRefused = false;
  if (!SendUnit(context, unit, size) || !ReceivePicture(context, frame) || !HasPicture(frame)) {
    av_frame_unref(&frame);
    avcodec_flush_buffers(&context);
    return t_SizeRefused ? kMediaTooLarge : kMediaFailed;
  }
  attr.width = frame.width;
  attr.height = frame.height;
  return kMediaDone;
}

void CloseDecoder(FFmpegAttr& attr) {
  AVCodecContext* context = CodecOf(attr);
  AVFrame* frame = FrameOf(attr);
  avcodec_free_context(&context);
  av_frame_free(&frame);
  sws_freeContext(ScalerOf(attr));
  attr = {};
}

}  // namespace oculora
