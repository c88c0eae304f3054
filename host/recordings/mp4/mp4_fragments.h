// What lies where in a recorded MP4 file: header, the place of its index, fragments.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "recordings/mp4/mp4_header.h"

namespace oculora {

// A moof with its mdat. Times are in units of the track's timescale.
struct Mp4Fragment {
  std::uint64_t offset = 0;
  std::uint64_t bytes = 0;
  std::int64_t time = 0;      // of its first frame
  std::int64_t duration = 0;  // of its frames together
  std::int32_t frames = 0;
  bool startsWithKey = false;
};

struct Mp4Layout {
  Mp4Track track;                      // offsets from the beginning of the file
  std::vector<Mp4Fragment> fragments;  // in order, one right after the other; times rise
  std::uint64_t end = 0;               // where the last whole fragment ends; without any, the header
  std::uint64_t fileBytes = 0;         // the file's size when it was read

  // The place for the index: an empty box, or an empty box and the index.
  std::uint64_t indexOffset = 0;
  std::uint64_t indexBytes = 0;
  bool hasIndex = false;

  // Of all fragments; time in units of the track's timescale.
  std::int64_t Duration() const;
  std::int64_t Frames() const;
};

enum class Mp4Reading {
  kRead,
  kTorn,     // the file ends within its header: nothing was recorded
  kForeign,  // another kind of file, or a damaged header
  kFailed,   // the disk did not give it
};

// Reads `fd` (readable; its position stays). Knows the files that Mp4Writer makes alone, finished, being written or
// torn: one video track, fragmented, with a place for the index. Unless it is kRead, a sentence in `reason` says why.
// Reading stops without complaint at the first fragment that is not whole. Made for any bytes: memory and work are
// bounded.
Mp4Reading ReadMp4Layout(int fd, Mp4Layout& layout, std::string& reason);

}  // namespace oculora
