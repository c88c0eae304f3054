// How cameras are asked over HTTP, and which answers may hold pictures.
#pragma once

#include <string>

#include "recorder/av/dictionary.h"

namespace oculora {

void SetHttpOptions(Dictionary& options);

// Whether an answer of that media type may hold pictures one after the other; pages that ask to log in do not.
bool MayBePictures(const std::string& mime);

}  // namespace oculora
