// A preview picture as the answer of a request.
#pragma once

#include <string>

#include "velm/webapi.h"

namespace oculora {

constexpr std::size_t kMostPictureBytes = 1 << 20;  // they have some ten thousand

// Writes the picture in place of the response. `caching` is the value of its Cache-Control.
void AnswerWithPicture(const std::string& picture, const std::string& caching, VELM::APIResponse& response);

}  // namespace oculora
