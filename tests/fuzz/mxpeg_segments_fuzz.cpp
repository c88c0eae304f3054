// Stamping pictures and making room for sound, whatever a camera sends as a picture.
#include "video/mxpeg_segments.h"

#include <algorithm>
#include <cstring>

#include "fuzz.h"

namespace {

constexpr std::int64_t kStamp = 0x1122334455667788;
constexpr std::size_t kNone = static_cast<std::size_t>(-1);

// Where the time stamp belongs, found the slow way.
std::size_t StampPlace(const FuzzInput& picture) {
  if (picture.size() < 8) return kNone;
  for (std::size_t i = 0; i + 7 < picture.size(); ++i) {
    if (picture[i] != 0xff || picture[i + 1] != 0xfe || std::memcmp(&picture[i + 4], "MXF", 3) != 0) continue;
    return i + 20 <= picture.size() ? i + 12 : kNone;
  }
  return kNone;
}

void CheckStamp(const FuzzInput& before) {
  FuzzInput picture = before;
  picture.shrink_to_fit();
  const bool stamped = StampPicture(picture, kStamp);
  const std::size_t place = StampPlace(before);
  FUZZ_CHECK(stamped == (place != kNone) && picture.size() == before.size());
  FuzzInput expected = before;
  for (std::size_t i = 0; stamped && i < 8; ++i) expected[place + i] = static_cast<std::uint8_t>(0x88 - 0x11 * i);
  FUZZ_CHECK(picture == expected);
}

void CheckSound(int pictureSize, int capacity) {
  const int room = SoundRoom(pictureSize, capacity);
  FUZZ_CHECK(room >= 0 && room <= kMaxSoundBytes);
  FUZZ_CHECK(room == 0 || pictureSize + kSoundHeaderBytes + room <= capacity);
  if (room == 0) return;
  unsigned char header[kSoundHeaderBytes];
  const auto duration = static_cast<int>(WriteSoundHeader(header, room, kStamp));
  FUZZ_CHECK((header[2] << 8 | header[3]) == room + kSoundHeaderBytes - 2);
  FUZZ_CHECK(duration == room * 125 || duration == room * 125 - 1);
}

}  // namespace

std::vector<FuzzInput> FuzzSeeds() {
  FuzzInput picture = {0xff, 0xd8, 0xff, 0xfe, 0x00, 0x12, 'M', 'X', 'F', 0x00, 0x01, 0x02,
                       0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 9,   10,  11,  12,   0xff, 0xd9};
  FuzzInput nested = picture;
  nested.insert(nested.begin() + 4, picture.begin(), picture.end());
  return {picture, nested, {picture.begin(), picture.end() - 6}, {0xff, 0xfe, 0, 0, 'M', 'X', 'F', 0}};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  CheckStamp(FuzzInput(data, data + size));
  if (size < 2) return 0;
  // Capacities below and above what a block can be.
  CheckSound(data[0] << 8 | data[1], static_cast<int>(size) * 997);
  return 0;
}
