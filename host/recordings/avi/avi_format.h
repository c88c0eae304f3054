// The AVI files of recordings, byte by byte.
//
// RIFF, AVI and BITMAPINFOHEADER are as Microsoft documents them ("AVI RIFF File Reference", Video for Windows). All
// numbers are little-endian. A chunk is an id of four bytes, the length of what follows (u32), that, and a zero byte
// when the length is odd; a LIST (and the RIFF around everything) is a chunk that begins with a type of four bytes and
// holds chunks.
//
//        0  "RIFF"  u32 length of the file - 8  "AVI "
//       12  "LIST"  u32 192  "hdrl"
//       24    "avih"  u32 56
//       32      u32 microseconds a picture
//       36      u32 0, u32 0
//       44      u32 flags: 0x10 says that there is an index, that is, that the file is finished
//       48      u32 number of pictures
//       52      u32 0, u32 1 (streams)
//       60      u32 length of the largest picture
//       64      u32 width, u32 height
//       72      u32 0 four times
//       88    "LIST"  u32 116  "strl"
//      100      "strh"  u32 56
//      108        "vids" "MJPG"
//      116        u32 0, u16 0, u16 0, u32 0
//      128        u32 1000000 (scale)
//      132        u32 pictures in a million seconds (rate; rate / scale is pictures a second)
//      136        u32 0 (start)
//      140        u32 number of pictures
//      144        u32 length of the largest picture
//      148        u32 0xffffffff (default quality)
//      152        u32 0
//      156        u16 0, u16 0, u16 width, u16 height
//      164      "strf"  u32 40
//      172        u32 40, u32 width, u32 height, u16 1 (planes), u16 24 (bits a pixel)
//      188        "MJPG"  u32 width * height * 3 (a decoded picture)
//      196        u32 0 four times
//      212  "JUNK"  u32 280, zeros up to 500
//      500  "LIST"  u32 length  "movi"
//      512    "00dc"  u32 length, a JPEG, a zero byte when the length is odd
//             ... one such chunk a picture
//           "idx1"  u32 16 * number of pictures
//             "00dc"  u32 0x10 (can be shown by itself)  u32 position of the chunk, counted from "movi"  u32 length
//             ... one such entry a picture
//
// The header is one disk sector, so that a power cut leaves the old one or the new one. While a file is written its
// header counts what had been written at some moment, more pictures may follow those, and there is no index.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace oculora {

constexpr std::size_t kAviHeaderBytes = 512;          // up to the first picture
constexpr std::size_t kAviChunkHead = 8;              // id and length
constexpr std::size_t kAviIndexEntry = 16;            // in idx1
constexpr std::int64_t kAviMoviType = 508;            // where positions in idx1 count from
constexpr std::int64_t kAviMaxBytes = 1'000'000'000;  // the index included

constexpr std::uint32_t AviId(const char (&id)[5]) {
  std::uint32_t value = 0;
  for (int i = 3; i >= 0; --i) value = value << 8 | static_cast<unsigned char>(id[i]);
  return value;
}

inline std::uint32_t GetAvi32(const std::uint8_t* at) {
  return at[0] | std::uint32_t{at[1]} << 8 | std::uint32_t{at[2]} << 16 | std::uint32_t{at[3]} << 24;
}

inline void PutAvi32(std::uint8_t* at, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) at[i] = static_cast<std::uint8_t>(value >> 8 * i);
}

// What a picture of `size` bytes takes in movi.
constexpr std::int64_t AviChunkBytes(std::uint64_t size) {
  return static_cast<std::int64_t>(kAviChunkHead + size + (size & 1));
}

// What idx1 takes for so many pictures.
constexpr std::int64_t AviIndexBytes(std::int64_t frames) {
  return static_cast<std::int64_t>(kAviChunkHead + kAviIndexEntry * static_cast<std::uint64_t>(frames));
}

// What the header says.
struct AviHeader {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t rate = 0;  // pictures in a million seconds
  std::uint32_t frames = 0;
  std::uint32_t largest = 0;               // length of the largest picture
  std::int64_t moviEnd = kAviHeaderBytes;  // behind the last picture
  bool finished = false;                   // idx1 follows, and nothing else

  std::int64_t FileBytes() const { return finished ? moviEnd + AviIndexBytes(frames) : moviEnd; }
};

using AviHeaderBytes = std::array<std::uint8_t, kAviHeaderBytes>;

AviHeaderBytes MakeAviHeader(const AviHeader& header);

// False when these bytes are not laid out as above.
bool ReadAviHeader(const AviHeaderBytes& bytes, AviHeader& header);

// A rate as the header holds it; 0 when `framesPerSecond` is not a number from 0.001 to 1000.
std::uint32_t AviRate(double framesPerSecond);

}  // namespace oculora
