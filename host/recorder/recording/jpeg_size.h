// The size of a JPEG picture, from its header.
#pragma once

#include <optional>

#include "recorder/frames/annexb.h"

namespace oculora {

struct PictureSize {
  int width = 0, height = 0;
  bool operator==(const PictureSize&) const = default;
};

// Empty when no frame header is found before the coded data, or it says that there is nothing. Takes any bytes.
std::optional<PictureSize> ReadJpegSize(Bytes jpeg);

}  // namespace oculora
