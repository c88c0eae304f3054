// Words for camera types and states, as commands, the web API and the page use them.
#pragma once

#include <cstdint>

namespace oculora {

enum class SourceState : std::int32_t;

const char* VideoTypeName(int videoType);  // of a CAM_VIDEO_TYPE: "mjpeg", "h264", ...; "?" for any other number
const char* StateName(SourceState state);  // "idle", "connecting", "streaming" or "failed"

}  // namespace oculora
