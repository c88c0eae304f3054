// Cameras that send MxPEG over HTTP, and recordings of it.
#include "recorder/sources/mxpeg_source.h"

#include "recorder/clock.h"
#include "recorder/frames/mxpeg_frames.h"
#include "recorder/frames/mxpeg_picture.h"
#include "recorder/recorder_log.h"
#include "recorder/sources/failure.h"
#include "recorder/sources/http_asking.h"
#include "recorder/sources/wait.h"

namespace oculora {
namespace {

// A stream in which so much holds nothing known is something else.
constexpr std::int64_t kMostUnknownBytes = 16777216;

int StreamIndexOf(MxpegItem::Kind kind) {
  switch (kind) {
    case MxpegItem::Kind::kPicture:
      return kMxpegPicture;
    case MxpegItem::Kind::kSound:
      return kMxpegSound;
    case MxpegItem::Kind::kTooLarge:
      return kMxpegTooLarge;
    default:
      return kMxpegLost;
  }
}

}  // namespace

MxpegSource::MxpegSource(SourceAddress address, int fps)
    : m_Address(std::move(address)), m_Pacer(fps), m_Parameters(avcodec_parameters_alloc()) {}

bool MxpegSource::Open(std::string& reason) {
  if (!m_Parameters) {
    reason = "Out of memory";
    return false;
  }
  m_Parameters->codec_type = AVMEDIA_TYPE_VIDEO;
  m_Parameters->codec_id = AV_CODEC_ID_MXPEG;
  m_Interrupt.Arm(kAnswerTimeoutMs);
  int rc = Connect();
  if (rc >= 0) rc = FindFirst();
  if (rc < 0) reason = OpenFailure(rc, m_Address, m_Interrupt.TimedOut());
  return rc >= 0;
}

int MxpegSource::Connect() {
  Dictionary options;
  if (IsFile()) return m_Input.Open("file:" + m_Address.target, options);
  SetHttpOptions(options);
  const int rc = m_Input.Open(m_Address.target, options);
  return rc >= 0 && !MayBePictures(m_Input.MimeType()) ? AVERROR_INVALIDDATA : rc;
}

// The first picture or sound, damaged or not, tells that this is such a stream at all.
int MxpegSource::FindFirst() {
  std::int64_t received = 0;
  for (;;) {
    m_First = m_Splitter.Next();
    if (m_First->kind != MxpegItem::Kind::kNone) return 0;
    const int count = Receive();
    if (count < 0) return count == AVERROR_EOF && received > 0 ? AVERROR_INVALIDDATA : count;
    received += count;
    if (received > kMostUnknownBytes) return AVERROR_INVALIDDATA;
  }
}

int MxpegSource::Receive() {
  const int count = m_Input.Read(m_Splitter.Space());
  if (count > 0) m_Splitter.Added(static_cast<std::size_t>(count));
  return count;
}

bool MxpegSource::Read(AVPacket& packet, std::string& reason) {
  av_packet_unref(&packet);
  m_Interrupt.Arm(kAnswerTimeoutMs);
  MxpegItem item;
  const int rc = TakeItem(item);
  if (rc < 0) {
    reason = ReadFailure(rc, m_Address, m_Interrupt.TimedOut());
    return false;
  }
  packet.stream_index = StreamIndexOf(item.kind);
  packet.data = const_cast<std::uint8_t*>(item.bytes.data());  // FFmpeg knows no packets that are only read
  packet.size = static_cast<int>(item.bytes.size());
  NoteDamage(item);
  if (item.kind != MxpegItem::Kind::kPicture) return true;
  m_EmptyLoop = false;
  return !IsFile() || WaitUntilUs(m_Pacer.NextDueUs(MonotonicUs(), ReadMxpegPicture(item.bytes).stampUs, 0));
}

int MxpegSource::TakeItem(MxpegItem& item) {
  if (m_First) {
    item = *m_First;
    m_First.reset();
    return 0;
  }
  for (;;) {
    item = m_Splitter.Next();
    if (item.kind != MxpegItem::Kind::kNone) return 0;
    const int count = Receive();
    if (count == AVERROR_EOF && IsFile()) {
      item.kind = MxpegItem::Kind::kDamaged;  // the first picture may need one that the file does not hold
      return StartOver();
    }
    if (count < 0) return count;
  }
}

int MxpegSource::StartOver() {
  if (m_EmptyLoop) return AVERROR_STREAM_NOT_FOUND;
  m_EmptyLoop = true;
  m_Pacer.NextLoop();
  m_Splitter.Reset();
  return m_Input.Rewind();
}

// Once a connection, and by what is safe to show.
void MxpegSource::NoteDamage(const MxpegItem& item) {
  if (m_DamageNoted || *item.damage == '\0') return;
  m_DamageNoted = true;
  LogError("%s sends damaged MxPEG pictures (%s); they are left out, and what needs them", m_Address.display.c_str(),
           item.damage);
}

}  // namespace oculora
