// The generated picture: colour bars, a moving stripe and the time of day.
#pragma once

#include <cstdint>

#include "recorder/av/ffmpeg.h"

namespace oculora {

// Draws the picture of `wallUs` (microseconds since 1970, shown in local time to the tenth of a second) into a planar
// 4:2:0 picture. What viewers see against a real clock is the delay of the whole chain.
void DrawTestPicture(AVFrame& picture, std::int64_t wallUs);

}  // namespace oculora
