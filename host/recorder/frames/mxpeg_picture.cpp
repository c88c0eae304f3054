// What stands in front of an MxPEG picture's coded blocks.
#include "recorder/frames/mxpeg_picture.h"

#include <cstddef>
#include <cstring>

#include "recorder/frames/jpeg_markers.h"

namespace oculora {
namespace {

// In a comment segment, from its marker on.
constexpr std::size_t kNameAt = 4;
constexpr std::size_t kStampAt = 12;
constexpr char kStamped[] = {'M', 'X', 'F'};

std::optional<std::int64_t> StampOf(std::span<const std::uint8_t> comment) {
  if (comment.size() < kStampAt + 8 || std::memcmp(&comment[kNameAt], kStamped, sizeof(kStamped)) != 0) return {};
  std::uint64_t stamp = 0;
  for (std::size_t i = 8; i-- > 0;) stamp = stamp << 8 | comment[kStampAt + i];
  return static_cast<std::int64_t>(stamp);
}

}  // namespace

MxpegPicture ReadMxpegPicture(std::span<const std::uint8_t> picture) {
  MxpegPicture found;
  if (picture.size() < 2 || picture[0] != kJpegMark || picture[1] != kJpegSoi) return found;
  std::size_t at = 2;
  while (at + 4 <= picture.size() && picture[at] == kJpegMark && picture[at + 1] != kJpegSos) {
    const std::uint8_t marker = picture[at + 1];
    if (marker == kJpegMark) {
      ++at;
      continue;
    }
    if (marker < kJpegFirstSegment || IsStandaloneMarker(marker)) {
      at += 2;
      continue;
    }
    const std::size_t size = 2 + static_cast<std::size_t>(picture[at + 2] << 8 | picture[at + 3]);
    if (size > picture.size() - at) break;
    if (IsFrameHeader(marker)) found.key = true;
    if (marker == kJpegDht) found.hasHuffmanTables = true;
    if (marker == kJpegComment && !found.stampUs) found.stampUs = StampOf(picture.subspan(at, size));
    at += size;
  }
  return found;
}

}  // namespace oculora
