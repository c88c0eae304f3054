// Writing a camera's frames to a file, whatever kind of file they call for.
#include "recorder/recording/file_writer.h"

#include <cerrno>

#include "recorder/recording/jpeg_size.h"
#include "recorder/recording/mp4_writer.h"
#include "recordings/avi/avi_finish.h"
#include "recordings/avi/avi_writer.h"
#include "recordings/mp4/mp4_finish.h"
#include "records/events.h"

namespace oculora {
namespace {

constexpr std::int64_t kMaxMp4Bytes = kAviMaxBytes;
constexpr std::int64_t kMp4Slack = 64'000'000;  // near the end a file takes the next key frame to end

class AviFile : public FileWriter {
 public:
  explicit AviFile(int fps) : m_Fps(fps) {}

  bool CanBeginWith(const FeedFrame& frame) const override { return frame.key && ReadJpegSize(frame.data).has_value(); }

  bool Open(const std::string& path, const FeedFrame& first, Bytes, std::string& reason) override {
    m_Size = ReadJpegSize(first.data).value_or(PictureSize{});
    m_FirstUs = first.timestampUs;
    return m_Writer.Open(path, m_Size.width, m_Size.height, m_Fps, reason);
  }

  FileWrite Write(const FeedFrame& frame, Bytes) override {
    if (!frame.key) return FileWrite::kLeftOut;
    const auto size = ReadJpegSize(frame.data);
    if (!size) return FileWrite::kLeftOut;
    if (*size != m_Size || !m_Writer.HasRoom(frame.data.size())) return FileWrite::kNewFile;
    if (m_Writer.Write(frame.data.data(), frame.data.size()) == 0) {
      m_LastUs = frame.timestampUs;
      return FileWrite::kWritten;
    }
    m_Error = errno;
    return m_Error == EINVAL ? FileWrite::kLeftOut : FileWrite::kFailed;
  }

  bool Sync() override {
    const std::int64_t spanUs = m_LastUs - m_FirstUs;
    const double rate = spanUs > 0 ? (m_Writer.FramesWritten() - 1) * 1e6 / static_cast<double>(spanUs) : 0;
    if (m_Writer.Sync(rate) == 0) return true;
    m_Error = errno;
    return false;
  }

  void Close() override {
    Sync();  // the rate of the whole file
    m_Writer.Close();
  }

  int Error() const override { return m_Error; }

 private:
  AviWriter m_Writer;
  int m_Fps;
  PictureSize m_Size;
  std::int64_t m_FirstUs = 0, m_LastUs = 0;
  int m_Error = 0;
};

class Mp4File : public FileWriter {
 public:
  Mp4File(int videoType, std::int32_t seconds) : m_VideoType(videoType), m_Seconds(seconds) {}

  bool CanBeginWith(const FeedFrame& frame) const override { return frame.key; }

  bool Open(const std::string& path, const FeedFrame& first, Bytes extra, std::string& reason) override {
    return m_Writer.Open(path, m_VideoType, first.data, extra, m_Seconds, reason);
  }

  FileWrite Write(const FeedFrame& frame, Bytes extra) override {
    const std::int64_t room = kMaxMp4Bytes - m_Writer.BytesWritten() - static_cast<std::int64_t>(frame.data.size());
    if (room < (frame.key ? kMp4Slack : 0) || (frame.key && m_Writer.IsOtherExtra(extra))) return FileWrite::kNewFile;
    switch (m_Writer.Write(frame.data, frame.key, frame.timestampUs)) {
      case Mp4Write::kWritten:
        return FileWrite::kWritten;
      case Mp4Write::kNewFile:
        return FileWrite::kNewFile;
      default:
        return FileWrite::kFailed;
    }
  }

  bool Sync() override { return m_Writer.Sync(); }
  void Close() override { m_Writer.Close(); }
  int Error() const override { return m_Writer.Error(); }

 private:
  Mp4Writer m_Writer;
  int m_VideoType;
  std::int32_t m_Seconds;
};

}  // namespace

std::unique_ptr<FileWriter> MakeFileWriter(int videoType, std::int32_t seconds, int fps) {
  if (RecordingExtension(videoType) == std::string(".avi")) return std::make_unique<AviFile>(fps);
  return std::make_unique<Mp4File>(videoType, seconds);
}

bool FinishFile(const std::string& path, RecordingFacts& facts, std::string& reason) {
  return path.ends_with(".avi") ? FinishAvi(path, facts, reason) : FinishMp4(path, facts, reason);
}

}  // namespace oculora
