// What a camera sent as a picture: is it a whole JPEG, and can it be decoded by itself?
#include "recorder/frames/jpeg_check.h"

#include "recorder/frames/jpeg_markers.h"

namespace oculora {
namespace {

// The length up to the last EOI; 0 when there is none.
std::size_t LengthToEoi(std::span<const std::uint8_t> data) {
  for (std::size_t end = data.size(); end >= 4; --end) {
    if (data[end - 2] == kJpegMark && data[end - 1] == kJpegEoi) return end;
  }
  return 0;
}

}  // namespace

JpegCheck CheckJpeg(std::span<const std::uint8_t> data) {
  JpegCheck check;
  if (data.size() < 4 || data[0] != kJpegMark || data[1] != kJpegSoi) return check;
  std::size_t at = 2;
  while (at + 4 <= data.size() && data[at] == kJpegMark) {
    const std::uint8_t marker = data[at + 1];
    if (marker == kJpegMark) {  // fill byte
      ++at;
      continue;
    }
    if (marker == kJpegDht) check.hasHuffmanTables = true;
    const std::size_t segment = static_cast<std::size_t>(data[at + 2] << 8 | data[at + 3]);
    if (segment < 2) return check;
    at += 2 + segment;
    if (marker != kJpegSos) continue;
    if (at < data.size()) check.length = LengthToEoi(data);
    if (check.length < at) check.length = 0;  // that EOI is a thumbnail's
    return check;
  }
  return check;
}

}  // namespace oculora
