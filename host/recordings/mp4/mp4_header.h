// The header of a recorded MP4 file: the muxer's, with places for what is known at the end alone.
#pragma once

#include <cstdint>
#include <vector>

#include "recordings/mp4/mp4_boxes.h"

namespace oculora {

// Sizes of the places. The length of all fragments is a mehd of 64 bits. The index is a sidx, as long as its
// references.
constexpr std::uint64_t kLengthBoxBytes = 20;
constexpr std::uint64_t kIndexHeadBytes = 40;
constexpr std::uint64_t kIndexReferenceBytes = 12;
constexpr std::uint64_t kEmptyBoxBytes = 8;
constexpr std::uint64_t kLeastIndexPlace = kIndexHeadBytes + kIndexReferenceBytes + kEmptyBoxBytes;

// Adds empty boxes to a header of ftyp and moov: one in the mvex for the length, one behind everything for the index of
// a file of `seconds`. The latter stands at a multiple of 8, so that its size never lies in two sectors. False when
// `header` is no such header; it is unchanged then.
bool AddMp4Places(std::vector<std::uint8_t>& header, std::int32_t seconds);

// A duration of 4 or 8 bytes somewhere in the header.
struct Mp4DurationField {
  std::uint64_t offset = 0;
  std::int32_t bytes = 0;
  std::uint32_t timescale = 0;  // its units in a second
};

// A file's video track, and where what is known at the end stands.
struct Mp4Track {
  std::uint32_t id = 0;
  std::uint32_t timescale = 0;
  std::int32_t width = 0, height = 0;  // pixels
  Mp4DurationField ofMovie, ofTrack, ofMedia;
  std::uint64_t lengthBox = 0;  // offset of the place for the length
};

// Reads the body of a moov that stands at `offset`. False when it is not one that AddMp4Places was applied to, or has
// other tracks than one of video.
bool ReadMp4Track(BoxBytes moov, std::uint64_t offset, Mp4Track& track);

}  // namespace oculora
