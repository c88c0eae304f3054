// The segments of MxPEG pictures that a live view writes.
#include "mxpeg_segments.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace {

constexpr unsigned char kComment[] = {0xff, 0xfe};
constexpr char kStampedComment[] = {'M', 'X', 'F'};
constexpr std::size_t kNameAt = 4;
constexpr std::size_t kStampAt = 12;
constexpr std::size_t kNameEnd = kNameAt + sizeof(kStampedComment);
constexpr std::size_t kSmallestPicture = 8;
constexpr double kSamplesPerSecond = 8000.0;

template <typename T>
void WriteLittleEndian(unsigned char* to, T value) {
  for (std::size_t i = 0; i < sizeof(value); ++i) to[i] = static_cast<unsigned char>(value >> (8 * i));
}

}  // namespace

bool StampPicture(std::span<unsigned char> picture, std::int64_t timestampUs) {
  if (picture.size() < kSmallestPicture) return false;
  unsigned char* const end = picture.data() + picture.size();
  unsigned char* const searchEnd = end - kNameEnd;
  for (unsigned char* at = picture.data(); at < searchEnd; ++at) {
    const auto left = static_cast<std::size_t>(searchEnd + 1 - at);
    at = static_cast<unsigned char*>(memmem(at, left, kComment, sizeof(kComment)));
    if (at == nullptr) return false;
    if (std::memcmp(at + kNameAt, kStampedComment, sizeof(kStampedComment)) != 0) continue;
    if (end - at < static_cast<std::ptrdiff_t>(kStampAt + sizeof(timestampUs))) return false;
    WriteLittleEndian(at + kStampAt, timestampUs);
    return true;
  }
  return false;
}

int SoundRoom(int pictureSize, int capacity) {
  return std::clamp(capacity - pictureSize - kSoundHeaderBytes, 0, kMaxSoundBytes);
}

std::uint32_t WriteSoundHeader(std::span<unsigned char, kSoundHeaderBytes> header, int soundBytes,
                               std::int64_t timestampUs) {
  const int length = kSoundHeaderBytes + soundBytes - 2;
  // In floating point on purpose: for some sizes the quotient falls short, and the product one microsecond with it.
  const auto durationUs = static_cast<std::uint32_t>((length - 14) / kSamplesPerSecond * 1000000);
  header[0] = 0xff;
  header[1] = 0xed;
  header[2] = static_cast<unsigned char>(length >> 8);
  header[3] = static_cast<unsigned char>(length);
  WriteLittleEndian(&header[4], durationUs);
  WriteLittleEndian(&header[8], timestampUs);
  return durationUs;
}
