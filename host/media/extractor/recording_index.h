// Where one can begin to decode a recording, and which pictures lie between.
#pragma once

extern "C" {
#include <libavformat/avformat.h>
}

#include <cstddef>
#include <cstdint>
#include <vector>

#include "recordings/mp4/mp4_fragments.h"

namespace oculora {

// A packet that needs none before it. It is known by its first byte, which is from `begin` on and before `end`; where
// these are the same, nothing tells it from others.
struct KeyPacket {
  std::int64_t time;  // what its demuxer finds it by, in the stream's time base; AV_NOPTS_VALUE: nothing
  std::int64_t begin;
  std::int64_t end;
  std::int32_t number;  // packets of the stream before it that give a picture
};

// Pictures beyond are not counted: two days at 25 a second.
constexpr std::int32_t kMostPictures = 4'320'000;

struct RecordingIndex {
  std::vector<KeyPacket> keys;  // in the order of the file; the first one is the first packet, key or not
  std::int32_t pictures = 0;
  double rate = 0;  // pictures a second, 0: unknown

  // The last key packet not behind packet `number`. The index must not be empty.
  std::size_t GroupOf(std::int32_t number) const;
};

// Takes what the header of the file tells. False when it does not tell of every picture.
bool ReadDemuxerIndex(AVStream& stream, RecordingIndex& index);

// `firstTime`: the decoding time of the first packet as the demuxer tells it.
void ReadLayoutIndex(const Mp4Layout& layout, const AVStream& stream, std::int64_t firstTime, RecordingIndex& index);

// Makes the index of all packets in the order of the file.
class PacketScan {
 public:
  // `byShowing`: the demuxer finds packets by the time at which they are shown, not at which they are decoded.
  PacketScan(const AVStream& stream, bool byShowing) : m_Stream(stream), m_ByShowing(byShowing) {}

  // False when no more are counted.
  bool Add(const AVPacket& packet);
  RecordingIndex Finish();

 private:
  const AVStream& m_Stream;
  const bool m_ByShowing;
  RecordingIndex m_Index;
  std::int64_t m_LastPosition = -1;
  std::int64_t m_LastTime = AV_NOPTS_VALUE;
  std::int64_t m_Steps = 0;  // from packet to packet, where time went on as it should
  double m_Seconds = 0;      // that they took
};

}  // namespace oculora
