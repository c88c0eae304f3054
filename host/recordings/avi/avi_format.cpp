// The header of the AVI files of recordings.
#include "recordings/avi/avi_format.h"

#include <cmath>

namespace oculora {
namespace {

constexpr std::uint32_t kScale = 1'000'000;
constexpr std::uint32_t kHasIndex = 0x10;

// Fixed words and where they stand. Whatever is not named is zero or said by AviHeader.
struct Word {
  std::size_t at;
  std::uint32_t value;
};
constexpr Word kFixed[] = {
    {0, AviId("RIFF")},
    {8, AviId("AVI ")},  // the file
    {12, AviId("LIST")},
    {16, 192},  // its header
    {20, AviId("hdrl")},
    {24, AviId("avih")},  //
    {28, 56},
    {56, 1},  //
    {88, AviId("LIST")},
    {92, 116},  // the stream
    {96, AviId("strl")},
    {100, AviId("strh")},  //
    {104, 56},
    {108, AviId("vids")},  //
    {112, AviId("MJPG")},
    {128, kScale},  //
    {148, 0xffffffff},
    {164, AviId("strf")},  //
    {168, 40},
    {172, 40},  //
    {184, 24U << 16 | 1},
    {188, AviId("MJPG")},  //
    {212, AviId("JUNK")},
    {216, 280},  // the rest of the sector
    {500, AviId("LIST")},
    {508, AviId("movi")},  // the pictures
};

constexpr std::size_t kRiffLength = 4, kMicroseconds = 32, kFlags = 44, kFrames = 48, kLargest = 60, kWidth = 64,
                      kHeight = 68, kRate = 132, kStreamFrames = 140, kStreamLargest = 144, kFrameSize = 160,
                      kBitmapWidth = 176, kBitmapHeight = 180, kBitmapBytes = 192, kMoviLength = 504;

}  // namespace

AviHeaderBytes MakeAviHeader(const AviHeader& header) {
  AviHeaderBytes bytes{};
  const auto put = [&bytes](std::size_t at, std::uint64_t value) {
    PutAvi32(bytes.data() + at, static_cast<std::uint32_t>(value));
  };
  for (const Word& word : kFixed) put(word.at, word.value);
  put(kRiffLength, static_cast<std::uint64_t>(header.FileBytes()) - kAviChunkHead);
  put(kMicroseconds, header.rate == 0 ? 0 : std::uint64_t{kScale} * kScale / header.rate);
  put(kFlags, header.finished ? kHasIndex : 0);
  for (const std::size_t at : {kFrames, kStreamFrames}) put(at, header.frames);
  for (const std::size_t at : {kLargest, kStreamLargest}) put(at, header.largest);
  for (const std::size_t at : {kWidth, kBitmapWidth}) put(at, header.width);
  for (const std::size_t at : {kHeight, kBitmapHeight}) put(at, header.height);
  put(kRate, header.rate);
  put(kFrameSize, header.height << 16 | (header.width & 0xffff));
  put(kBitmapBytes, std::uint64_t{header.width} * header.height * 3);
  put(kMoviLength, static_cast<std::uint64_t>(header.moviEnd - kAviMoviType));
  return bytes;
}

bool ReadAviHeader(const AviHeaderBytes& bytes, AviHeader& header) {
  const auto get = [&bytes](std::size_t at) { return GetAvi32(bytes.data() + at); };
  for (const Word& word : kFixed) {
    if (get(word.at) != word.value) return false;
  }
  header.width = get(kWidth);
  header.height = get(kHeight);
  header.rate = get(kRate);
  header.frames = get(kFrames);
  header.largest = get(kLargest);
  header.moviEnd = kAviMoviType + get(kMoviLength);
  header.finished = (get(kFlags) & kHasIndex) != 0;
  return true;
}

std::uint32_t AviRate(double framesPerSecond) {
  // Written so that what is not a number fails as well.
  const bool inRange = framesPerSecond >= 0.001 && framesPerSecond <= 1000;
  return inRange ? static_cast<std::uint32_t>(std::llround(framesPerSecond * kScale)) : 0;
}

}  // namespace oculora
