// What stands in front of an MxPEG picture's coded blocks.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace oculora {

struct MxpegPicture {
  bool key = false;                     // a whole JPEG; others hold only the blocks that changed
  bool hasHuffmanTables = false;        // without them only decoders that know the standard ones show it
  std::optional<std::int64_t> stampUs;  // microseconds since 1970, of the "MXF" comment
};

// Takes any bytes; what is no picture has none of the three.
MxpegPicture ReadMxpegPicture(std::span<const std::uint8_t> picture);

}  // namespace oculora
