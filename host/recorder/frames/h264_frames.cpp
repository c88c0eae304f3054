// H.264: whole access units as a byte stream, every key frame with SPS and PPS in front.
#include "recorder/frames/h264_frames.h"

#include "recorder/recorder_log.h"

namespace oculora {

H264Frames::H264Frames() : m_KeyUnit(kMaxFrameBytes) {}

bool H264Frames::Start(const AVCodecParameters& stream, AVRational timeBase, CameraRings& rings, std::string& reason) {
  // Files keep access units with length prefixes; the filter leaves byte streams as they are.
  if (m_ToByteStream.Open("h264_mp4toannexb", stream, timeBase) < 0) {
    reason = "The H.264 stream's header is damaged";
    return false;
  }
  const AVCodecParameters& output = m_ToByteStream.Output();
  m_Sets.TakeAll({output.extradata, static_cast<std::size_t>(output.extradata_size)});
  PublishSets(rings);
  return true;
}

FrameResult H264Frames::Write(AVPacket& packet, std::int64_t arrivedUs, CameraRings& rings) {
  if (m_ToByteStream.Filter(packet) < 0) return FrameResult::kSkipped;
  const Bytes unit(packet.data, static_cast<std::size_t>(packet.size));
  const AccessUnitHead head = ReadHead(unit, m_Sets);
  if (head.setsChanged) PublishSets(rings);
  if (!head.hasSlice) return FrameResult::kSkipped;
  if (head.bidirectional) m_SawReordering = true;
  if (head.idr && !head.beginsPicture) return AddPart(head);
  ReleaseHeld(rings);
  // Cameras with rolling refresh never send an IDR picture; there the parser marks where decoding can begin.
  const bool key = (head.idr || (packet.flags & AV_PKT_FLAG_KEY) != 0) && m_Sets.IsComplete();
  if (key) return WriteKey(unit, head, arrivedUs, rings);
  if (!m_SawKey) return FrameResult::kSkipped;
  return rings.Write(unit.data(), unit.size(), false, arrivedUs) ? FrameResult::kWritten : FrameResult::kTooLarge;
}

FrameResult H264Frames::WriteKey(Bytes unit, const AccessUnitHead& head, std::int64_t arrivedUs, CameraRings& rings) {
  const std::size_t size = WriteKeyUnit(unit, head, m_Sets, m_KeyUnit);
  if (size == 0) return FrameResult::kTooLarge;
  m_SawKey = true;
  if (m_InParts) {
    m_InParts = false;  // until a part comes
    m_HeldSize = size;
    m_HeldArrivedUs = arrivedUs;
  } else if (!rings.Write(m_KeyUnit.data(), size, true, arrivedUs)) {
    return FrameResult::kTooLarge;
  }
  return FrameResult::kWritten;
}

// Without a key frame that waits for it the part is lost: its picture has gone out, or its beginning never came.
FrameResult H264Frames::AddPart(const AccessUnitHead& head) {
  m_InParts = true;
  if (m_HeldSize == 0) return FrameResult::kSkipped;
  const std::size_t size = WriteSlices(head, std::span(m_KeyUnit).subspan(m_HeldSize));
  m_HeldSize = size == 0 ? 0 : m_HeldSize + size;
  return size == 0 ? FrameResult::kTooLarge : FrameResult::kSkipped;
}

void H264Frames::ReleaseHeld(CameraRings& rings) {
  if (m_HeldSize > 0) rings.Write(m_KeyUnit.data(), m_HeldSize, true, m_HeldArrivedUs);
  m_HeldSize = 0;
}

void H264Frames::PublishSets(CameraRings& rings) {
  if (!m_Sets.IsComplete()) return;
  const Bytes stream = m_Sets.Stream();
  if (!rings.SetExtra(stream.data(), stream.size())) {
    LogError("the stream's parameter sets are too large to be announced (%zu bytes)", stream.size());
  }
}

}  // namespace oculora
