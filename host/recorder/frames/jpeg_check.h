// What a camera sent as a picture: is it a whole JPEG, and can it be decoded by itself?
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace oculora {

struct JpegCheck {
  std::size_t length = 0;         // bytes from SOI to EOI; 0 when this is no whole picture
  bool hasHuffmanTables = false;  // without them only decoders that know the AVI convention show it
};

// Bytes after EOI (padding, parts of a boundary) are not counted; bytes before SOI are not accepted.
JpegCheck CheckJpeg(std::span<const std::uint8_t> data);

}  // namespace oculora
