// Cameras that send their pictures over HTTP.
#include "recorder/sources/http_source.h"

#include "recorder/sources/failure.h"
#include "recorder/sources/http_asking.h"

namespace oculora {

int HttpSource::Connect(const char* format, bool probe) {
  Dictionary options;
  SetHttpOptions(options);
  return m_Demuxer.Open(m_Address.target, format, options, probe);
}

bool HttpSource::Open(std::string& reason) {
  m_Interrupt.Arm(kAnswerTimeoutMs);
  int rc = 0;
  if (m_Expected == AV_CODEC_ID_MJPEG) {
    rc = Connect("mpjpeg", false);
    // Some cameras announce one boundary and send another, without dashes, or none at all. The pictures' own
    // markers tell them apart as well, one picture later.
    if (rc == AVERROR_INVALIDDATA) rc = Connect("mjpeg", false);
    if (rc >= 0 && !MayBePictures(m_Demuxer.MimeType())) rc = AVERROR_INVALIDDATA;
  } else {
    rc = Connect(nullptr, true);
  }
  if (rc < 0) reason = OpenFailure(rc, m_Address, m_Interrupt.TimedOut());
  return rc >= 0;
}

bool HttpSource::Read(AVPacket& packet, std::string& reason) {
  m_Interrupt.Arm(kAnswerTimeoutMs);
  const int rc = m_Demuxer.Read(packet);
  if (rc < 0) reason = ReadFailure(rc, m_Address, m_Interrupt.TimedOut());
  return rc >= 0;
}

}  // namespace oculora
