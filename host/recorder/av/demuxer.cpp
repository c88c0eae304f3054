// The video stream of an FFmpeg input.
#include "recorder/av/demuxer.h"

#include <cerrno>

#include "recorder/av/byte_input.h"

namespace oculora {

int Demuxer::Open(const std::string& url, const char* format, Dictionary& options, bool probe) {
  Close();
  AVFormatContext* context = avformat_alloc_context();
  if (context == nullptr) return AVERROR(ENOMEM);
  context->interrupt_callback = m_Interrupt.Callback();
  const AVInputFormat* input = format == nullptr ? nullptr : av_find_input_format(format);
  const int rc = avformat_open_input(&context, url.c_str(), input, options.Get());  // frees the context on failure
  if (rc < 0) return rc;
  m_Context.reset(context);
  if (probe) {
    const int probed = avformat_find_stream_info(context, nullptr);
    if (probed < 0) return probed;
  }
  return ChooseVideo();
}

int Demuxer::ChooseVideo() {
  m_Video = -1;
  for (unsigned i = 0; i < m_Context->nb_streams; ++i) {
    AVStream* stream = m_Context->streams[i];
    const bool cover = (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
    if (m_Video < 0 && stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO && !cover) {
      m_Video = static_cast<int>(i);
    } else {
      stream->discard = AVDISCARD_ALL;
    }
  }
  return m_Video < 0 ? AVERROR_STREAM_NOT_FOUND : 0;
}

int Demuxer::Read(AVPacket& packet) {
  for (;;) {
    av_packet_unref(&packet);
    const int rc = av_read_frame(m_Context.get(), &packet);
    if (rc < 0) return rc;
    if (packet.stream_index == m_Video) return 0;
  }
}

int Demuxer::Rewind() {
  const AVStream& video = Video();
  const std::int64_t start = video.start_time == AV_NOPTS_VALUE ? 0 : video.start_time;
  const int rc = av_seek_frame(m_Context.get(), m_Video, start, AVSEEK_FLAG_BACKWARD);
  // Formats without an index or time stamps (raw streams) go back by bytes.
  return rc >= 0 ? 0 : av_seek_frame(m_Context.get(), m_Video, 0, AVSEEK_FLAG_BYTE);
}

void Demuxer::Close() { m_Context.reset(); }

std::string Demuxer::MimeType() const { return m_Context == nullptr ? "" : MimeTypeOf(m_Context->pb); }

}  // namespace oculora
