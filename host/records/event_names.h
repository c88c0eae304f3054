// Words for what recorded events are, as commands, the web API and the page use them.
#pragma once

#include <string>

#include "records/events.h"

namespace oculora {

const char* CauseName(EventCause cause);        // "continuous", "request" or "import"
const char* StateName(EventState state);        // "ready", "recording", "requested", "failed" or "deleting"
const char* StateName(RecordingState state);    // "off", "recording", "waiting" or "failed"
const char* PicturesName(int videoType);        // "mjpeg", "h264", ...; "other" for a codec no camera sends
std::string FileKind(const std::string& path);  // "avi", "mp4", ...: its extension; empty without a file

}  // namespace oculora
