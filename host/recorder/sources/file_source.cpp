// A recorded file, over and over, at its own pace.
#include "recorder/sources/file_source.h"

#include <algorithm>

#include "recorder/clock.h"
#include "recorder/sources/failure.h"
#include "recorder/sources/wait.h"

namespace oculora {

bool FileSource::Open(std::string& reason) {
  const int rc = Connect();
  if (rc < 0) reason = OpenFailure(rc, m_Address, m_Interrupt.TimedOut());
  return rc >= 0;
}

int FileSource::Connect() {
  Dictionary options;
  m_Interrupt.Arm(kAnswerTimeoutMs);
  return m_Demuxer.Open("file:" + m_Address.target, nullptr, options, true);
}

bool FileSource::Read(AVPacket& packet, std::string& reason) {
  const int rc = ReadLooped(packet);
  if (rc < 0) {
    reason = ReadFailure(rc, m_Address, m_Interrupt.TimedOut());
    return false;
  }
  return WaitUntilUs(DueUs(packet));
}

int FileSource::ReadLooped(AVPacket& packet) {
  m_Interrupt.Arm(kAnswerTimeoutMs);
  int rc = m_Demuxer.Read(packet);
  if (rc == AVERROR_EOF && !m_EmptyLoop) {
    m_EmptyLoop = true;
    m_Pacer.NextLoop();
    rc = m_Demuxer.Rewind();
    if (rc < 0) rc = Connect();
    if (rc >= 0) rc = m_Demuxer.Read(packet);
  }
  if (rc == AVERROR_EOF) return AVERROR_STREAM_NOT_FOUND;  // a whole loop without a frame
  m_EmptyLoop = false;
  return rc;
}

std::int64_t FileSource::DueUs(const AVPacket& packet) {
  const AVRational base = TimeBase();
  const AVRational micro = {1, 1000000};
  const std::int64_t stamp = packet.dts != AV_NOPTS_VALUE ? packet.dts : packet.pts;
  std::optional<std::int64_t> stampUs;
  if (stamp != AV_NOPTS_VALUE) stampUs = av_rescale_q(stamp, base, micro);
  return m_Pacer.NextDueUs(MonotonicUs(), stampUs,
                           av_rescale_q(std::max<std::int64_t>(packet.duration, 0), base, micro));
}

}  // namespace oculora
