// The size of a JPEG picture, from its header.
#include "recorder/recording/jpeg_size.h"

namespace oculora {
namespace {

constexpr std::size_t kFrameHeaderBytes = 9;  // marker, length, precision, height, width

// SOF0 to SOF15, without the three numbers among them that mean something else.
bool IsFrameHeader(int marker) {
  return marker >= 0xc0 && marker <= 0xcf && marker != 0xc4 && marker != 0xc8 && marker != 0xcc;
}

}  // namespace

std::optional<PictureSize> ReadJpegSize(Bytes jpeg) {
  const auto number = [&jpeg](std::size_t at) { return jpeg[at] << 8 | jpeg[at + 1]; };
  for (std::size_t at = 2; at + kFrameHeaderBytes <= jpeg.size() && jpeg[at] == 0xff;) {
    const int marker = jpeg[at + 1];
    if (marker == 0xff) {  // padding
      ++at;
    } else if (IsFrameHeader(marker)) {
      const PictureSize size{number(at + 7), number(at + 5)};
      return size.width > 0 && size.height > 0 ? std::optional(size) : std::nullopt;
    } else if (marker == 0xda) {
      break;
    } else {
      at += 2 + static_cast<std::size_t>(number(at + 2));
    }
  }
  return std::nullopt;
}

}  // namespace oculora
