// Cameras that speak RTSP.
#include "recorder/sources/rtsp_source.h"

#include "recorder/sources/failure.h"

namespace oculora {

bool RtspSource::Open(std::string& reason) {
  Dictionary options;
  options.Set("rtsp_flags", "prefer_tcp");
  options.Set("allowed_media_types", "video");
  options.Set("timeout", kAnswerTimeoutMs * 1000LL);
  options.Set("user_agent", "oculora-recorder");
  m_Interrupt.Arm(kAnswerTimeoutMs);
  // The session description names the codec; reading ahead would only delay the first picture.
  const int rc = m_Demuxer.Open(m_Address.target, "rtsp", options, false);
  if (rc < 0) reason = OpenFailure(rc, m_Address, m_Interrupt.TimedOut());
  return rc >= 0;
}

bool RtspSource::Read(AVPacket& packet, std::string& reason) {
  m_Interrupt.Arm(kAnswerTimeoutMs);
  const int rc = m_Demuxer.Read(packet);
  if (rc < 0) reason = ReadFailure(rc, m_Address, m_Interrupt.TimedOut());
  return rc >= 0;
}

}  // namespace oculora
