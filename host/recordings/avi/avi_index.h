// Where the pictures of an AVI file are.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace oculora {

struct AviFrame {
  std::uint64_t offset;  // of the picture itself
  std::uint32_t size;    // at least 1; all of it lies inside the file
};

struct AviIndex {
  double rate = 0;  // pictures a second, on average, as header and index state it: may be 0 or senseless
  int width = 0, height = 0;
  std::vector<AviFrame> frames;  // in the order of showing; empty when none has been written yet
};

// Reads the index of an AVI file that holds a stream of JPEG pictures (the first such stream counts; sound and other
// streams may stand beside it), whoever wrote it, also when it is still being written or its end is missing. Reads
// headers only, no pictures, with pread. False with a sentence in `reason` when the file cannot be read, is not an AVI,
// holds no JPEG stream, or more pictures than a day and a half of 30 a second. The bytes of a picture are not checked.
bool ReadAviIndex(int fd, AviIndex& index, std::string& reason);

}  // namespace oculora
