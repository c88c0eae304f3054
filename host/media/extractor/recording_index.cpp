// Where one can begin to decode a recording. See recording_index.h.
#include "media/extractor/recording_index.h"

#include <algorithm>
#include <utility>

namespace oculora {
namespace {

constexpr double kLongestStep = 60;  // seconds; more is a gap, or a clock that was set

double AverageRate(const AVStream& stream) {
  return stream.avg_frame_rate.num > 0 && stream.avg_frame_rate.den > 0 ? av_q2d(stream.avg_frame_rate) : 0;
}

double RateOf(std::int32_t pictures, std::int64_t duration, AVRational timeBase) {
  const double seconds = static_cast<double>(duration) * av_q2d(timeBase);
  return seconds > 0 ? pictures / seconds : 0;
}

}  // namespace

std::size_t RecordingIndex::GroupOf(std::int32_t number) const {
  const auto behind = std::upper_bound(keys.begin() + 1, keys.end(), number,
                                       [](std::int32_t value, const KeyPacket& key) { return value < key.number; });
  return static_cast<std::size_t>(behind - keys.begin()) - 1;
}

bool ReadDemuxerIndex(AVStream& stream, RecordingIndex& index) {
  const int entries = avformat_index_get_entries_count(&stream);
  if (entries <= 0 || entries != stream.nb_frames || entries > kMostPictures) return false;
  for (int i = 0; i < entries; ++i) {
    const AVIndexEntry& entry = *avformat_index_get_entry(&stream, i);
    if (entry.size == 0) continue;
    if (index.keys.empty() || (entry.flags & AVINDEX_KEYFRAME) != 0) {
      index.keys.push_back({entry.timestamp, entry.pos, entry.pos + 1, index.pictures});
    }
    if ((entry.flags & AVINDEX_DISCARD_FRAME) == 0) ++index.pictures;
  }
  index.rate = stream.duration > 0 ? RateOf(index.pictures, stream.duration, stream.time_base) : AverageRate(stream);
  return index.pictures > 0;
}

void ReadLayoutIndex(const Mp4Layout& layout, const AVStream& stream, std::int64_t firstTime, RecordingIndex& index) {
  const AVRational units = {1, static_cast<int>(layout.track.timescale)};
  const std::int64_t begin = layout.fragments.front().time;
  for (const Mp4Fragment& fragment : layout.fragments) {
    if (index.pictures > kMostPictures - fragment.frames) break;
    if (fragment.startsWithKey || index.keys.empty()) {
      index.keys.push_back({firstTime + av_rescale_q(fragment.time - begin, units, stream.time_base),
                            static_cast<std::int64_t>(fragment.offset),
                            static_cast<std::int64_t>(fragment.offset + fragment.bytes), index.pictures});
    }
    index.pictures += fragment.frames;
  }
  index.rate = RateOf(index.pictures, layout.Duration(), units);
}

bool PacketScan::Add(const AVPacket& packet) {
  if (m_Index.keys.empty() || (packet.flags & AV_PKT_FLAG_KEY) != 0) {
    const std::int64_t shown = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
    const std::int64_t decoded = packet.dts != AV_NOPTS_VALUE ? packet.dts : packet.pts;
    // Several packets may begin in one piece of a container; they cannot be told apart.
    const bool isAlone = packet.pos >= 0 && packet.pos != m_LastPosition;
    m_Index.keys.push_back(
        {m_ByShowing ? shown : decoded, packet.pos, packet.pos + (isAlone ? 1 : 0), m_Index.pictures});
  }
  m_LastPosition = packet.pos;
  if ((packet.flags & AV_PKT_FLAG_DISCARD) == 0) ++m_Index.pictures;
  if (packet.dts != AV_NOPTS_VALUE && m_LastTime != AV_NOPTS_VALUE) {
    const double step =
        (static_cast<double>(packet.dts) - static_cast<double>(m_LastTime)) * av_q2d(m_Stream.time_base);
    if (step > 0 && step < kLongestStep) {
      m_Seconds += step;
      ++m_Steps;
    }
  }
  m_LastTime = packet.dts;
  return m_Index.pictures < kMostPictures;
}

RecordingIndex PacketScan::Finish() {
  m_Index.rate = m_Seconds > 0 ? static_cast<double>(m_Steps) / m_Seconds : AverageRate(m_Stream);
  return std::move(m_Index);
}

}  // namespace oculora
