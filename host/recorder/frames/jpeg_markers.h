// The second bytes of JPEG markers; the first is always kJpegMark.
#pragma once

#include <cstdint>

namespace oculora {

constexpr std::uint8_t kJpegMark = 0xff;
constexpr std::uint8_t kJpegFirstSegment = 0xc0;  // markers below stand alone or do not exist
constexpr std::uint8_t kJpegDht = 0xc4;
constexpr std::uint8_t kJpegSoi = 0xd8;
constexpr std::uint8_t kJpegEoi = 0xd9;
constexpr std::uint8_t kJpegSos = 0xda;
constexpr std::uint8_t kJpegApp13 = 0xed;
constexpr std::uint8_t kJpegComment = 0xfe;

constexpr bool IsRestartMarker(std::uint8_t marker) { return marker >= 0xd0 && marker <= 0xd7; }
// Without length and content, besides SOI and EOI.
constexpr bool IsStandaloneMarker(std::uint8_t marker) { return marker == 0x01 || IsRestartMarker(marker); }
// SOF0 to SOF15; tables for arithmetic coding (cc) and an extension (c8) lie among them.
constexpr bool IsFrameHeader(std::uint8_t marker) {
  return marker >= 0xc0 && marker <= 0xcf && marker != kJpegDht && marker != 0xc8 && marker != 0xcc;
}

}  // namespace oculora
