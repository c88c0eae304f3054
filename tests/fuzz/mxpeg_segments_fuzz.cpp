// Stamping whatever a camera sends as a picture.
#include "video/mxpeg_segments.h"

#include "fuzz.h"

std::vector<FuzzInput> FuzzSeeds() {
  FuzzInput picture = {0xff, 0xd8, 0xff, 0xfe, 0x00, 0x12, 'M', 'X', 'F', 0x00, 0x01, 0x02,
                       0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 9,   10,  11,  12,   0xff, 0xd9};
  return {picture, {picture.begin(), picture.end() - 6}};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzInput picture(data, data + size);
  picture.shrink_to_fit();
  const bool stamped = StampPicture(picture, 0x1122334455667788);
  std::size_t changed = 0;
  for (std::size_t i = 0; i < size; ++i) changed += picture[i] != data[i];
  FUZZ_CHECK(changed <= (stamped ? 8 : 0));
  return 0;
}
