// The packets of a recorded file's video stream. See demuxed_recording.h.
#include "media/extractor/demuxed_recording.h"

#include <sys/stat.h>

#include <cstring>

namespace oculora {
namespace {

constexpr int kMostFaults = 100;    // in a row that a demuxer may report before the file counts as ended
constexpr int kMostSkipped = 2000;  // packets between where a demuxer went and the packet looked for

// Its header tells what decoders and timing need; others are looked into.
bool IsMp4(const AVFormatContext& context) { return std::strstr(context.iformat->name, "mp4") != nullptr; }

// Streams without a header to tell positions by time.
bool IsFoundByByte(const AVFormatContext& context) {
  constexpr int kUntimed = AVFMT_TS_DISCONT | AVFMT_NOTIMESTAMPS;
  return (context.iformat->flags & kUntimed) != 0 && (context.iformat->flags & AVFMT_NO_BYTE_SEEK) == 0;
}

// Some containers do not tell when a picture is shown. It can be worked out for codecs that put pictures in order in
// one way alone.
bool IsOrderKnown(AVCodecID codec) {
  return codec == AV_CODEC_ID_MPEG1VIDEO || codec == AV_CODEC_ID_MPEG2VIDEO || codec == AV_CODEC_ID_MPEG4;
}

std::string Why(int error) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(error, text, sizeof(text));
  return text;
}

}  // namespace

bool DemuxedRecording::Open(int fd, std::string& reason) {
  struct stat status {};
  if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
    reason = "it is no regular file";
    return false;
  }
  std::int64_t bytes = status.st_size;
  Mp4Layout layout;
  std::string foreign;
  if (ReadMp4Layout(fd, layout, foreign) == Mp4Reading::kRead && !layout.fragments.empty()) {
    bytes = static_cast<std::int64_t>(layout.end);
    m_Layout = std::move(layout);
  }
  m_Input.emplace(fd, bytes);
  m_Ahead.reset(av_packet_alloc());
  if (!m_Ahead || !OpenDemuxer(reason)) return false;
  if (!MakeIndex()) {
    reason = "it holds no pictures";
    return false;
  }
  return true;
}

bool DemuxedRecording::OpenDemuxer(std::string& reason) {
  m_Context.reset();
  av_packet_unref(m_Ahead.get());
  m_Next = 0;
  AVFormatContext* context = avformat_alloc_context();
  if (context == nullptr || !m_Input->Attach(*context)) {
    avformat_free_context(context);
    reason = "memory is short";
    return false;
  }
  int rc = avformat_open_input(&context, "", nullptr, nullptr);  // frees the context when it fails
  if (rc == 0) {
    m_Context.reset(context);
    if (!IsMp4(*context)) rc = avformat_find_stream_info(context, nullptr);
  }
  if (rc < 0) {
    reason = "it cannot be read as a video file: " + Why(rc);
    return false;
  }
  return ChooseStream(reason);
}

bool DemuxedRecording::ChooseStream(std::string& reason) {
  const int number = av_find_best_stream(m_Context.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  m_Stream = number >= 0 ? m_Context->streams[number] : nullptr;
  if (m_Stream == nullptr || (m_Stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0) {
    reason = "it holds no video";
    return false;
  }
  if (IsOrderKnown(m_Stream->codecpar->codec_id)) m_Context->flags |= AVFMT_FLAG_GENPTS;
  for (unsigned i = 0; i < m_Context->nb_streams; ++i) {
    m_Context->streams[i]->discard = static_cast<int>(i) == number ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
  }
  return true;
}

bool DemuxedRecording::MakeIndex() {
  if (m_Layout) return ReadLayout();
  return ReadDemuxerIndex(*m_Stream, m_Index) || Scan();
}

bool DemuxedRecording::ReadLayout() {
  if (!ReadRaw(*m_Ahead)) return false;
  const std::int64_t time = m_Ahead->dts != AV_NOPTS_VALUE ? m_Ahead->dts : m_Ahead->pts;
  ReadLayoutIndex(*m_Layout, *m_Stream, time, m_Index);
  m_Layout->fragments = {};  // they stand in the index now
  return m_Index.pictures > 0;
}

bool DemuxedRecording::Scan() {
  PacketScan scan(*m_Stream, !IsMp4(*m_Context));
  while (ReadRaw(*m_Ahead) && scan.Add(*m_Ahead)) av_packet_unref(m_Ahead.get());
  av_packet_unref(m_Ahead.get());
  m_Index = scan.Finish();
  return m_Index.pictures > 0 && GoTo(0);
}

// What is wrong in the middle of a file does not end it.
bool DemuxedRecording::ReadRaw(AVPacket& packet) {
  for (int faults = 0; faults < kMostFaults;) {
    const int rc = av_read_frame(m_Context.get(), &packet);
    if (rc == AVERROR_EOF || rc == AVERROR(ENOMEM)) return false;
    if (rc < 0) {
      ++faults;
      continue;
    }
    if (packet.stream_index == m_Stream->index && packet.size > 0) return true;
    av_packet_unref(&packet);
  }
  return false;
}

bool DemuxedRecording::Read(AVPacket& packet) {
  av_packet_unref(&packet);
  if (m_Ahead->data != nullptr) {
    av_packet_move_ref(&packet, m_Ahead.get());
  } else if (!ReadRaw(packet)) {
    return false;
  }
  if ((packet.flags & AV_PKT_FLAG_DISCARD) == 0) ++m_Next;
  return true;
}

bool DemuxedRecording::GoTo(std::size_t group) {
  const KeyPacket& key = m_Index.keys[group];
  av_packet_unref(m_Ahead.get());
  if (key.begin < key.end && Seek(key) && FindKey(key, kMostSkipped)) {
    m_Next = key.number;
    return true;
  }
  return StartOver(key.number);
}

bool DemuxedRecording::Seek(const KeyPacket& key) {
  if (IsFoundByByte(*m_Context)) return av_seek_frame(m_Context.get(), -1, key.begin, AVSEEK_FLAG_BYTE) >= 0;
  return key.time != AV_NOPTS_VALUE &&
         av_seek_frame(m_Context.get(), m_Stream->index, key.time, AVSEEK_FLAG_BACKWARD) >= 0;
}

bool DemuxedRecording::FindKey(const KeyPacket& key, int packets) {
  for (; packets > 0 && ReadRaw(*m_Ahead); --packets) {
    if (m_Ahead->pos >= key.begin && m_Ahead->pos < key.end) return true;
    av_packet_unref(m_Ahead.get());
  }
  return false;
}

// For files that demuxers cannot go to places in: slow, but right.
bool DemuxedRecording::StartOver(std::int32_t number) {
  std::string ignored;
  if (!OpenDemuxer(ignored)) return false;
  for (; m_Next < number; av_packet_unref(m_Ahead.get())) {
    if (!ReadRaw(*m_Ahead)) return false;
    if ((m_Ahead->flags & AV_PKT_FLAG_DISCARD) == 0) ++m_Next;
  }
  return true;
}

}  // namespace oculora
