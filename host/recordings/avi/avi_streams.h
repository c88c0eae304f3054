// What the header of an AVI file says about its pictures.
#pragma once

#include <cstdint>

#include "recordings/avi/chunk_reader.h"

namespace oculora {

struct AviStreams {
  int stream = -1;  // the first stream of JPEG pictures; -1: there is none
  double rate = 0;  // pictures a second; may be senseless, 0 when the header divides by zero
  int width = 0, height = 0;
  std::uint64_t movi = 0;      // where the list of pictures begins
  std::uint32_t moviSize = 0;  // as stated
};

// False when there is no list of pictures.
bool ReadAviStreams(ChunkReader& reader, AviStreams& streams);

// Whether `id` is that of a picture of the stream: its number in two digits, then "dc" or "db".
bool IsPictureOf(int stream, std::uint32_t id);

}  // namespace oculora
