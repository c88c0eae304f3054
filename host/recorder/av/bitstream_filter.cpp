// An FFmpeg bitstream filter that turns one packet into one packet.
#include "recorder/av/bitstream_filter.h"

namespace oculora {

int BitstreamFilter::Open(const char* name, const AVCodecParameters& input, AVRational timeBase) {
  m_Context.reset();
  const AVBitStreamFilter* filter = av_bsf_get_by_name(name);
  if (filter == nullptr) return AVERROR_BSF_NOT_FOUND;
  AVBSFContext* raw = nullptr;
  int rc = av_bsf_alloc(filter, &raw);
  if (rc < 0) return rc;
  AvPtr<AVBSFContext> context(raw);
  rc = avcodec_parameters_copy(raw->par_in, &input);
  if (rc < 0) return rc;
  raw->time_base_in = timeBase;
  rc = av_bsf_init(raw);
  if (rc < 0) return rc;
  m_Context = std::move(context);
  return 0;
}

int BitstreamFilter::Filter(AVPacket& packet) {
  const int rc = av_bsf_send_packet(m_Context.get(), &packet);
  if (rc < 0) {
    av_packet_unref(&packet);
    return rc;
  }
  return av_bsf_receive_packet(m_Context.get(), &packet);
}

}  // namespace oculora
