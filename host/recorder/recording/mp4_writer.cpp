// Writes H.264 and MPEG-4 frames to an MP4 file that plays while it grows.
#include "recorder/recording/mp4_writer.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "front/unique_fd.h"
#include "recorder/av/dictionary.h"
#include "recorder/av/ffmpeg.h"
#include "recorder/recording/frame_times.h"
#include "recorder/recording/stream_parameters.h"
#include "recordings/mp4/mp4_header.h"

namespace oculora {
namespace {

constexpr std::int32_t kTimescale = 90000;
constexpr std::int64_t kLeastFragmentUs = 1000000;
constexpr std::int64_t kMostFragmentUs = 10000000;
constexpr std::int64_t kMostFragmentBytes = 8 << 20;
constexpr int kBufferBytes = 256 * 1024;
// What a moof and its mdat take beside the frames, and for each frame: nearly, for the size that a file is going to
// have.
constexpr std::int64_t kFragmentHeadBytes = 120;
constexpr std::int64_t kFrameEntryBytes = 12;

struct MuxerDeleter {
  void operator()(AVFormatContext* context) const { avformat_free_context(context); }
};
struct OutputDeleter {
  void operator()(AVIOContext* io) const {
    av_freep(&io->buffer);
    avio_context_free(&io);
  }
};

// A muxer that flushes a fragment when the frame after it arrives knows how long the last frame of it lasted.
void SetFragmentOptions(Dictionary& options) {
  options.Set("movflags", "empty_moov+default_base_moof+frag_keyframe+skip_trailer");
  options.Set("min_frag_duration", kLeastFragmentUs);
  options.Set("frag_duration", kMostFragmentUs);
  options.Set("frag_size", kMostFragmentBytes);
  options.Set("video_track_timescale", kTimescale);
  options.Set("use_editlist", 0);
}

}  // namespace

class Mp4Writer::Impl {
 public:
  bool Open(const std::string& path, std::int32_t videoType, Bytes keyFrame, Bytes extra, std::int32_t seconds,
            std::string& reason);
  Mp4Write Write(Bytes frame, bool key, std::int64_t timestampUs);
  bool IsOtherExtra(Bytes extra) const {
    return m_Codec == AV_CODEC_ID_MPEG4 && !std::equal(extra.begin(), extra.end(), m_Extra.begin(), m_Extra.end());
  }
  bool Sync();
  bool Close();
  std::int64_t BytesWritten() const { return m_FileBytes + m_HeldBytes; }
  int Error() const { return m_Error; }

 private:
  bool Begin(const std::string& path, Bytes keyFrame, std::int32_t seconds, std::string& reason);
  bool OpenMuxer(Bytes keyFrame);
  bool WriteHeader(std::int32_t seconds);
  bool TakeHeader(Bytes keyFrame, Bytes extra);
  bool HasOtherHeader(Bytes keyFrame);
  bool FillPacket(Bytes frame, bool key, std::int64_t timestampUs);
  bool WriteToFile(Bytes bytes);
  // Notes what FFmpeg returned. Whether it was a success.
  bool Note(int rc);
  static int OnBytes(void* self, std::uint8_t* bytes, int size);

  AVCodecID m_Codec = AV_CODEC_ID_NONE;
  ParameterSets m_Sets;                // of H.264
  std::vector<std::uint8_t> m_Header;  // of MPEG-4, as the file has it
  std::vector<std::uint8_t> m_Extra;   // of MPEG-4, as the ring told it
  FrameTimes m_Times{kTimescale};

  UniqueFd m_Fd;
  std::unique_ptr<AVIOContext, OutputDeleter> m_Output;  // outlives the muxer
  std::unique_ptr<AVFormatContext, MuxerDeleter> m_Muxer;
  AvPtr<AVPacket> m_Packet;
  std::vector<std::uint8_t> m_HeaderBytes;  // the muxer's header, until it is in the file
  bool m_CollectsHeader = false;
  bool m_Begun = false;
  bool m_NeedsNewFile = false;
  int m_Error = 0;
  std::int64_t m_FileBytes = 0;
  std::int64_t m_HeldBytes = 0;  // of the fragment in memory
};

bool Mp4Writer::Impl::Open(const std::string& path, std::int32_t videoType, Bytes keyFrame, Bytes extra,
                           std::int32_t seconds, std::string& reason) {
  m_Codec = Mp4CodecOf(videoType);
  if (m_Codec == AV_CODEC_ID_NONE) {
    reason = "Streams of this codec are not recorded as MP4";
    return false;
  }
  if (!TakeHeader(keyFrame, extra)) {
    reason = "The key frame comes without the stream's parameters";
    return false;
  }
  if (!OpenMuxer(keyFrame)) {
    reason = "The size of the stream's pictures cannot be told";
    return false;
  }
  m_Fd.Reset(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!m_Fd.IsValid()) {
    m_Error = errno;
    reason = std::string("The file cannot be made: ") + std::strerror(m_Error);
    return false;
  }
  if (WriteHeader(seconds)) return true;
  reason = std::string("The file's header cannot be written: ") + std::strerror(m_Error);
  m_Muxer.reset();
  m_Fd.Reset();
  unlink(path.c_str());
  return false;
}

bool Mp4Writer::Impl::TakeHeader(Bytes keyFrame, Bytes extra) {
  if (m_Codec == AV_CODEC_ID_H264) {
    ReadHead(keyFrame, m_Sets);
    return m_Sets.IsComplete();
  }
  const Bytes inFrame = Mpeg4Header(keyFrame);
  const Bytes header = inFrame.empty() ? extra : inFrame;
  m_Header.assign(header.begin(), header.end());
  m_Extra.assign(extra.begin(), extra.end());
  return !m_Header.empty();
}

bool Mp4Writer::Impl::HasOtherHeader(Bytes keyFrame) {
  if (m_Codec == AV_CODEC_ID_H264) return ReadHead(keyFrame, m_Sets).setsChanged;
  const Bytes header = Mpeg4Header(keyFrame);
  return !header.empty() && !std::equal(header.begin(), header.end(), m_Header.begin(), m_Header.end());
}

bool Mp4Writer::Impl::OpenMuxer(Bytes keyFrame) {
  const Bytes header = m_Codec == AV_CODEC_ID_H264 ? m_Sets.Stream() : Bytes(m_Header);
  const AvPtr<AVCodecParameters> parameters = MakeStreamParameters(m_Codec, header, keyFrame);
  AVFormatContext* muxer = nullptr;
  if (!parameters || avformat_alloc_output_context2(&muxer, nullptr, "mp4", nullptr) < 0) return false;
  m_Muxer.reset(muxer);
  m_Packet.reset(av_packet_alloc());
  auto* buffer = static_cast<std::uint8_t*>(av_malloc(kBufferBytes));
  if (buffer != nullptr) {
    m_Output.reset(avio_alloc_context(buffer, kBufferBytes, 1, this, nullptr, &Impl::OnBytes, nullptr));
    if (!m_Output) av_free(buffer);
  }
  AVStream* stream = avformat_new_stream(muxer, nullptr);
  if (!m_Packet || !m_Output || stream == nullptr) return false;
  if (avcodec_parameters_copy(stream->codecpar, parameters.get()) < 0) return false;
  stream->time_base = {1, kTimescale};
  muxer->pb = m_Output.get();
  muxer->flags |= AVFMT_FLAG_CUSTOM_IO | AVFMT_FLAG_BITEXACT | AVFMT_FLAG_FLUSH_PACKETS;
  return true;
}

// The muxer's header goes to the file in one piece, with the places that finishing fills.
bool Mp4Writer::Impl::WriteHeader(std::int32_t seconds) {
  Dictionary options;
  SetFragmentOptions(options);
  m_CollectsHeader = true;
  if (!Note(avformat_write_header(m_Muxer.get(), options.Get()))) return false;
  avio_flush(m_Output.get());
  m_CollectsHeader = false;
  if (!AddMp4Places(m_HeaderBytes, seconds)) return Note(AVERROR_BUG);
  const bool written = WriteToFile(m_HeaderBytes);
  m_HeaderBytes = {};
  return written;
}

Mp4Write Mp4Writer::Impl::Write(Bytes frame, bool key, std::int64_t timestampUs) {
  if (m_Error != 0 || !m_Muxer) return Mp4Write::kFailed;
  if (frame.empty() || !(key || m_Begun)) return Mp4Write::kWritten;
  m_NeedsNewFile = m_NeedsNewFile || (key && HasOtherHeader(frame));
  if (m_NeedsNewFile) return Mp4Write::kNewFile;
  m_Begun = true;

  const std::int64_t time = m_Times.Next(timestampUs);
  AVPacket& packet = *m_Packet;
  packet.data = const_cast<std::uint8_t*>(frame.data());  // the muxer copies it
  packet.size = static_cast<int>(frame.size());
  packet.flags = key ? AV_PKT_FLAG_KEY : 0;
  packet.pts = packet.dts = time;
  packet.duration = m_Times.ProbableDuration();
  const std::int64_t before = m_FileBytes;
  const bool written = Note(av_write_frame(m_Muxer.get(), &packet));
  packet.data = nullptr;
  packet.size = 0;
  if (m_FileBytes != before || m_HeldBytes == 0) m_HeldBytes = kFragmentHeadBytes;
  m_HeldBytes += static_cast<std::int64_t>(frame.size()) + kFrameEntryBytes;
  return written ? Mp4Write::kWritten : Mp4Write::kFailed;
}

bool Mp4Writer::Impl::Sync() {
  if (m_Error == 0 && m_Fd.IsValid() && fdatasync(m_Fd.Get()) != 0) m_Error = errno;
  return m_Error == 0;
}

bool Mp4Writer::Impl::Close() {
  if (m_Muxer && m_Error == 0) Note(av_write_trailer(m_Muxer.get()));
  m_HeldBytes = 0;
  m_Muxer.reset();
  m_Output.reset();
  m_Fd.Reset();  // an error that shows here shows again when finishing syncs the file
  return m_Error == 0;
}

bool Mp4Writer::Impl::WriteToFile(Bytes bytes) {
  while (!bytes.empty() && m_Error == 0) {
    const ssize_t count = write(m_Fd.Get(), bytes.data(), bytes.size());
    if (count < 0 && errno != EINTR) m_Error = errno;
    if (count > 0) m_FileBytes += count;
    bytes = bytes.subspan(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  }
  return m_Error == 0;
}

bool Mp4Writer::Impl::Note(int rc) {
  const int code = AVUNERROR(rc);
  if (rc < 0 && m_Error == 0) m_Error = code > 0 && code < 4096 ? code : EINVAL;
  return m_Error == 0;
}

int Mp4Writer::Impl::OnBytes(void* self, std::uint8_t* bytes, int size) {
  auto& writer = *static_cast<Impl*>(self);
  const Bytes piece(bytes, static_cast<std::size_t>(size));
  if (writer.m_CollectsHeader) {
    writer.m_HeaderBytes.insert(writer.m_HeaderBytes.end(), piece.begin(), piece.end());
    return size;
  }
  return writer.WriteToFile(piece) ? size : AVERROR(writer.m_Error);
}

Mp4Writer::Mp4Writer() : m_Impl(std::make_unique<Impl>()) {}
Mp4Writer::~Mp4Writer() { Close(); }

bool Mp4Writer::Open(const std::string& path, std::int32_t videoType, Bytes keyFrame, Bytes extra,
                     std::int32_t secondsReserved, std::string& reason) {
  return m_Impl->Open(path, videoType, keyFrame, extra, secondsReserved, reason);
}
Mp4Write Mp4Writer::Write(Bytes frame, bool key, std::int64_t timestampUs) {
  return m_Impl->Write(frame, key, timestampUs);
}
bool Mp4Writer::IsOtherExtra(Bytes extra) const { return m_Impl->IsOtherExtra(extra); }
bool Mp4Writer::Sync() { return m_Impl->Sync(); }
bool Mp4Writer::Close() { return m_Impl->Close(); }
std::int64_t Mp4Writer::BytesWritten() const { return m_Impl->BytesWritten(); }
int Mp4Writer::Error() const { return m_Impl->Error(); }

}  // namespace oculora
