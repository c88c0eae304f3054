// The MPEG-TS segmenter over FFmpeg's demuxer for raw H.264 and its segment muxer.
#include "ffmpegWrap.h"

#include <unistd.h>

#include <cstring>

#include "ffmpeg.h"
#include "qmlog.h"

namespace {

constexpr char kLogUnit[] = "ffmpegWrap";
constexpr char kInputFormat[] = "h264";
constexpr int kRawPacketBytes = 65536;       // a frame at a time: the demuxer would take it in pieces of 1 KiB
constexpr std::int64_t kAnalyzeUs = 100000;  // a live pipe must not be probed for seconds
constexpr int kDefaultFps = 10;
constexpr unsigned kDefaultPauseUs = 100000;
constexpr unsigned kSecondUs = 1000000;

// Opens the input when its data is raw H.264. Another format is noted in the context's `opaque` and its demuxer never
// started: one for playlists or manifests would open what these name, the pipe itself again and for ever among it.
int OpenH264(AVFormatContext* input, AVIOContext** io, const char* url, int flags, AVDictionary** options) {
  int rc = avio_open2(io, url, flags, &input->interrupt_callback, options);
  if (rc < 0) return rc;
  const AVInputFormat* format = nullptr;
  rc = av_probe_input_buffer2(*io, &format, url, nullptr, 0, 0);
  if (rc >= 0 && std::strcmp(format->name, kInputFormat) != 0) {
    *static_cast<const AVInputFormat**>(input->opaque) = format;
    rc = AVERROR_INVALIDDATA;
  }
  if (rc < 0) avio_closep(io);
  return rc;
}

void SetSegmentOptions(Options& options, const char* playlistPath, const char* entryPrefix) {
  options.Set("segment_time", "2");
  options.Set("segment_list_size", "6");
  options.Set("segment_list_type", "m3u8");
  options.Set("segment_list_flags", "live");
  options.Set("segment_list", playlistPath);
  options.Set("segment_list_entry_prefix", entryPrefix);
}

// The limits of the rate control stand in side data of the stream, when its source knows them.
void CopyRateLimits(const AVStream* input, AVStream* output) {
  size_t size = 0;
  const std::uint8_t* limits = av_stream_get_side_data(input, AV_PKT_DATA_CPB_PROPERTIES, &size);
  if (limits == nullptr) return;
  std::uint8_t* copy = av_stream_new_side_data(output, AV_PKT_DATA_CPB_PROPERTIES, size);
  if (copy != nullptr) std::memcpy(copy, limits, size);
}

bool CopyExtradata(const AVCodecParameters* input, AVCodecParameters* output) {
  const auto size = static_cast<size_t>(input->extradata_size);
  auto* copy = static_cast<std::uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
  if (copy == nullptr) return false;
  if (size > 0) std::memcpy(copy, input->extradata, size);
  av_freep(&output->extradata);
  output->extradata = copy;
  output->extradata_size = input->extradata_size;
  return true;
}

void CopyPicture(const AVCodecParameters* input, AVStream* outputStream) {
  AVCodecParameters* output = outputStream->codecpar;
  output->format = input->format;
  output->width = input->width;
  output->height = input->height;
  output->video_delay = input->video_delay;
  if (output->sample_aspect_ratio.num != 0) return;
  output->sample_aspect_ratio = input->sample_aspect_ratio.num != 0 ? input->sample_aspect_ratio : AVRational{0, 1};
  outputStream->sample_aspect_ratio = output->sample_aspect_ratio;
}

}  // namespace

int H264TS::OpenInputFile(const char* url) {
  const AVInputFormat* other = nullptr;
  m_Input = avformat_alloc_context();
  if (m_Input != nullptr) {
    m_Input->opaque = &other;
    m_Input->io_open = OpenH264;
  }
  if (m_Input == nullptr || avformat_open_input(&m_Input, url, nullptr, nullptr) < 0) {
    if (other != nullptr) {
      QM_LOG_ALWAYS(__func__, "Unsupported video codec [%s]. Only support H264.\n", other->name);
      return SEGMENTER_NOT_H264;
    }
    QM_LOG_ALWAYS(__func__, "Could not open source file %s.\n", url);
    return SEGMENTER_NOT_OPENED;
  }
  m_Input->opaque = nullptr;
  m_Input->max_analyze_duration = kAnalyzeUs;
  av_opt_set_int(m_Input, "raw_packet_size", kRawPacketBytes, AV_OPT_SEARCH_CHILDREN);
  if (avformat_find_stream_info(m_Input, nullptr) < 0) {
    QM_LOG_ALWAYS(__func__, "Could not find stream information.\n");
    CleanResource();
    return SEGMENTER_NO_STREAM;
  }
  m_InputStream = m_Input->streams[0];
  av_dump_format(m_Input, 0, url, 0);
  return SEGMENTER_OK;
}

int H264TS::OpenOutputFile(const char* pattern) {
  avformat_alloc_output_context2(&m_Output, nullptr, "segment", pattern);
  int result = SEGMENTER_OK;
  if (m_Output == nullptr) {
    result = SEGMENTER_NOT_OPENED;
  } else if (m_Input == nullptr) {
    QM_LOG_ALWAYS(__func__, "Input file is not specified.\n");
    result = SEGMENTER_NO_INPUT;
  } else if (AddVideoStream(AV_CODEC_ID_H264) != SEGMENTER_OK) {
    QM_LOG_ALWAYS(__func__, "Failed to Add video stream...\n");
    result = SEGMENTER_NO_STREAM;
  } else if ((m_Output->oformat->flags & AVFMT_NOFILE) == 0 && avio_open(&m_Output->pb, pattern, AVIO_FLAG_WRITE) < 0) {
    QM_LOG_ALWAYS(__func__, "Could not open '%s'.\n", pattern);
    result = SEGMENTER_NOT_OPENED;
  }
  if (result != SEGMENTER_OK) CleanResource();  // the input too: there will be no transcode that closes it
  return result;
}

// A format's default codec is constant, and global headers follow from the extradata: neither needs setting.
int H264TS::AddVideoStream(int codecId) {
  AVStream* stream = avformat_new_stream(m_Output, nullptr);
  if (stream == nullptr) return SEGMENTER_NO_MEMORY;
  stream->codecpar->codec_id = static_cast<AVCodecID>(codecId);
  stream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
  m_OutputStream = stream;
  return SEGMENTER_OK;
}

int H264TS::InitParam() {
  const AVCodecParameters* input = m_InputStream->codecpar;
  AVCodecParameters* output = m_OutputStream->codecpar;
  output->codec_id = input->codec_id;
  output->codec_type = input->codec_type;
  output->codec_tag = input->codec_tag;
  output->bit_rate = input->bit_rate;
  CopyRateLimits(m_InputStream, m_OutputStream);
  output->field_order = input->field_order;
  if (!CopyExtradata(input, output)) return SEGMENTER_NO_MEMORY;
  output->bits_per_coded_sample = input->bits_per_coded_sample;
  m_OutputStream->time_base = m_InputStream->time_base;  // a hint: the muxer replaces it
  if (output->codec_type != AVMEDIA_TYPE_VIDEO) return SEGMENTER_NOT_VIDEO;
  CopyPicture(input, m_OutputStream);
  m_OutputStream->avg_frame_rate = m_InputStream->avg_frame_rate;
  return SEGMENTER_OK;
}

int H264TS::StartTransCode(const char* playlistPath, const char* entryPrefix, int fps) {
  const PacketPtr packet(av_packet_alloc());
  if (packet == nullptr) {
    CleanResource();
    return SEGMENTER_NO_MEMORY;
  }
  m_Running = true;
  InitParam();
  Options options;
  SetSegmentOptions(options, playlistPath, entryPrefix);
  if (avformat_write_header(m_Output, options.Get()) < 0) {
    QM_LOG_ALWAYS(__func__, "Failed to write output header...\n");
    CleanResource();
    return SEGMENTER_NO_HEADER;
  }

  unsigned pauseUs = kDefaultPauseUs;
  if (fps < 1) {
    QM_LOG_ALWAYS(__func__, "Wrong fps, patch it from %d to 10.\n", fps);
    fps = kDefaultFps;
  } else {
    pauseUs = kSecondUs / static_cast<unsigned>(fps);
  }
  // The denominator alone, not the rate: readers of the stream know it so.
  m_OutputStream->avg_frame_rate.den = fps;
  m_FrameDuration = m_OutputStream->time_base.den / fps;

  while (m_Running) {
    if (av_read_frame(m_Input, packet.get()) < 0) {
      usleep(pauseUs);
      break;
    }
    DoStreamCopy(packet.get());
    av_packet_unref(packet.get());  // holds something only when it was dropped
  }
  if (av_write_trailer(m_Output) < 0) QM_LOG_ALWAYS(__func__, "Failed to write trailer...\n");
  CleanResource();
  return SEGMENTER_OK;
}

int H264TS::DoStreamCopy(AVPacket* packet) {
  if (m_FrameCount == 0 && (packet->flags & AV_PKT_FLAG_KEY) == 0) return SEGMENTER_BEFORE_KEY_FRAME;
  m_BytesWritten += packet->size;
  packet->duration = m_FrameDuration;
  // In 32 bits: time stamps turn over after 2^32 ticks.
  const std::uint32_t pts = static_cast<std::uint32_t>(m_FrameCount) * static_cast<std::uint32_t>(m_FrameDuration);
  packet->pts = pts;
  av_interleaved_write_frame(m_Output, packet);
  ++m_FrameCount;
  return SEGMENTER_OK;
}

void H264TS::CleanResource() {
  if (m_Output != nullptr && (m_Output->oformat->flags & AVFMT_NOFILE) == 0) avio_closep(&m_Output->pb);
  m_OutputStream = nullptr;
  m_Reserved1 = nullptr;
  m_InputStream = nullptr;
  m_Reserved2 = nullptr;
  avformat_close_input(&m_Input);
  avformat_free_context(m_Output);
  m_Output = nullptr;
}
