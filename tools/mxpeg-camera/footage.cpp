// Pictures out of a film, looped.
#include "footage.h"

extern "C" {
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cerrno>

namespace oculora {
namespace {

constexpr AVRational kMicroseconds = {1, 1000000};

std::string Describe(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof(text));
  return text;
}

}  // namespace

Footage::~Footage() { sws_freeContext(m_Scaler); }

bool Footage::Open(const std::string& path, std::string& reason) {
  m_Packet.reset(av_packet_alloc());
  m_Shown.reset(av_frame_alloc());
  m_Next.reset(av_frame_alloc());
  const int rc = m_Packet && m_Shown && m_Next ? OpenCodec(path) : AVERROR(ENOMEM);
  if (rc < 0) {
    reason = "No pictures can be had from " + path + ": " + Describe(rc);
    return false;
  }
  return ReadFrame(reason);
}

int Footage::OpenCodec(const std::string& path) {
  AVFormatContext* input = nullptr;
  int rc = avformat_open_input(&input, path.c_str(), nullptr, nullptr);
  if (rc < 0) return rc;
  m_Input.reset(input);
  if ((rc = avformat_find_stream_info(input, nullptr)) < 0) return rc;
  const AVCodec* decoder = nullptr;
  m_Stream = av_find_best_stream(input, AVMEDIA_TYPE_VIDEO, -1, -1, &decoder, 0);
  if (m_Stream < 0) return m_Stream;
  for (int i = 0; i < static_cast<int>(input->nb_streams); ++i) {
    if (i != m_Stream) input->streams[i]->discard = AVDISCARD_ALL;
  }
  m_Codec.reset(avcodec_alloc_context3(decoder));
  if (!m_Codec) return AVERROR(ENOMEM);
  const AVStream& stream = *input->streams[m_Stream];
  if ((rc = avcodec_parameters_to_context(m_Codec.get(), stream.codecpar)) < 0) return rc;
  if (stream.avg_frame_rate.num > 0) m_FrameUs = av_rescale_q(1, av_inv_q(stream.avg_frame_rate), kMicroseconds);
  return avcodec_open2(m_Codec.get(), decoder, nullptr);
}

// The next frame that can be decoded, across the film's end. Damaged ones are passed over.
bool Footage::ReadFrame(std::string& reason) {
  for (;;) {
    int rc = Receive();
    if (rc >= 0) {
      const std::int64_t stamp = m_Next->best_effort_timestamp;
      const std::int64_t start = m_Input->streams[m_Stream]->start_time;
      std::int64_t at = m_NextUs + (m_LoopHasFrames ? m_FrameUs : 0);
      if (stamp != AV_NOPTS_VALUE) {
        const std::int64_t place = stamp - (start == AV_NOPTS_VALUE ? 0 : start);
        at = m_LoopStartUs + av_rescale_q(place, m_Input->streams[m_Stream]->time_base, kMicroseconds);
      }
      m_NextUs = std::max(at, m_NextUs);
      m_LoopHasFrames = true;
      return true;
    }
    if (rc == AVERROR_EOF && m_LoopHasFrames) rc = Rewind();
    if (rc < 0) {
      reason = "The film cannot be read: " + Describe(rc);
      return false;
    }
  }
}

int Footage::Receive() {
  for (;;) {
    int rc = avcodec_receive_frame(m_Codec.get(), m_Next.get());
    if (rc != AVERROR(EAGAIN)) return rc;
    av_packet_unref(m_Packet.get());
    rc = av_read_frame(m_Input.get(), m_Packet.get());
    if (rc >= 0 && m_Packet->stream_index != m_Stream) continue;
    if (rc < 0 && rc != AVERROR_EOF) return rc;
    rc = avcodec_send_packet(m_Codec.get(), rc < 0 ? nullptr : m_Packet.get());
    if (rc < 0 && rc != AVERROR_INVALIDDATA) return rc;
  }
}

int Footage::Rewind() {
  const std::int64_t start = m_Input->streams[m_Stream]->start_time;
  int rc = av_seek_frame(m_Input.get(), m_Stream, start == AV_NOPTS_VALUE ? 0 : start, AVSEEK_FLAG_BACKWARD);
  if (rc < 0) rc = av_seek_frame(m_Input.get(), m_Stream, 0, AVSEEK_FLAG_BYTE);  // formats without an index
  avcodec_flush_buffers(m_Codec.get());
  m_NextUs += m_FrameUs;
  m_LoopStartUs = m_NextUs;
  m_LoopHasFrames = false;
  return rc;
}

bool Footage::Advance(std::int64_t stepUs, AVFrame& picture, std::string& reason) {
  m_NowUs += stepUs;
  bool changed = false;
  while (m_NextUs <= m_NowUs) {
    std::swap(m_Shown, m_Next);
    changed = true;
    if (!ReadFrame(reason)) return false;
  }
  return !changed || Scale(picture, reason);
}

bool Footage::Scale(AVFrame& picture, std::string& reason) {
  const AVFrame& from = *m_Shown;
  m_Scaler =
      sws_getCachedContext(m_Scaler, from.width, from.height, static_cast<AVPixelFormat>(from.format), picture.width,
                           picture.height, AV_PIX_FMT_YUVJ420P, SWS_BILINEAR, nullptr, nullptr, nullptr);
  if (m_Scaler != nullptr &&
      sws_scale(m_Scaler, from.data, from.linesize, 0, from.height, picture.data, picture.linesize) == picture.height) {
    return true;
  }
  reason = "The film's pictures cannot be scaled";
  return false;
}

}  // namespace oculora
