// Words for camera types and states, as commands, the web API and the page use them.
#pragma once

#include <cstdint>
#include <string>

namespace oculora {

enum class SourceState : std::int32_t;

const char* VideoTypeName(int videoType);      // of a CAM_VIDEO_TYPE: "mjpeg", "h264", ...; "?" for any other number
int VideoTypeByName(const std::string& name);  // the other way round; 0 for any other name
const char* StateName(SourceState state);      // "idle", "connecting", "streaming" or "failed"

}  // namespace oculora
