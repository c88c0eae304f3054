// The small picture beside a recorded file.
#pragma once

#include <string>

#include "recorder/frames/annexb.h"

namespace oculora {

// Decodes `picture`, a key frame of CAM_VIDEO_TYPE `videoType` with the codec extra data `extra`, and writes it as
// JPEG, 320 pixels wide at most, to `path`, where it appears all at once. False when it cannot be decoded or written.
bool WriteThumbnail(int videoType, Bytes picture, Bytes extra, const std::string& path);

// Files that WriteThumbnail left when it was killed are called so.
constexpr char kUnfinishedThumbnail[] = ".part";

}  // namespace oculora
